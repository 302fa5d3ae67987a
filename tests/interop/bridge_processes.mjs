// What the tests of the bridge start: `velmoor serve`, and the application behind it.
import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { mkdtemp, rm } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { createInterface } from 'node:readline';
import { after } from 'node:test';

const cache = await mkdtemp(join(tmpdir(), 'velmoor-bridge-'));
after(() => rm(cache, { recursive: true, force: true }));

export const ENVIRONMENT = { ...process.env, XDG_CACHE_HOME: cache };

// A command that serves until the test has ended, and its address.
export async function startServing(...options) {
  const server = spawn(process.env.VELMOOR, ['serve', '--port', '0', ...options], { stdio: ['ignore', 'ignore', 'pipe'], env: ENVIRONMENT });
  const [line] = await once(createInterface({ input: server.stderr }), 'line');
  const ended = once(server, 'exit');
  return { url: new URL(/http:.*$/.exec(line)[0]), end: async () => (server.kill('SIGTERM'), assert.deepEqual(await ended, [0, null])) };
}

export async function startApplication() {
  const application = spawn(process.env.INTEROP_SERVER, ['8720'], { stdio: ['pipe', 'pipe', 'ignore'] });
  await once(createInterface({ input: application.stdout }), 'line');
  application.stdout.resume();
  return application;
}

export async function endApplication(application) {
  const ended = once(application, 'exit');
  application.kill('SIGKILL');
  await ended;
}
