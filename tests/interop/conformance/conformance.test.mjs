// The protocol's conformance suite against `velmoor serve`, which has the tools that it calls from a fixture. What fails
// has to be in the files of expected failures, and what is there has to fail.
import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { mkdtemp, rm } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { text } from 'node:stream/consumers';
import { createInterface } from 'node:readline';
import { after, before, test } from 'node:test';

const SUITES = [
  { suite: 'conformance-0.1', revision: '2025-11-25', scope: ['--spec-version', '2025-11-25'] },
  { suite: 'conformance-0.2', revision: '2025-11-25', scope: ['--requirements', '2025-11-25'] },
  { suite: 'conformance-0.2', revision: '2026-07-28', scope: ['--requirements', '2026-07-28'] },
];

const cache = await mkdtemp(join(tmpdir(), 'velmoor-conformance-'));
const started = [];
let url;
before(async () => {
  const fixture = spawn(process.execPath, ['fixture_server.mjs'], { stdio: ['pipe', 'pipe', 'inherit'] });
  const bridge = spawn(process.env.VELMOOR, ['serve', '--port', '0', '--wait', '0.2'],
    { stdio: ['ignore', 'ignore', 'pipe'], env: { ...process.env, XDG_CACHE_HOME: cache } });
  started.push(fixture, bridge);
  const [[line]] = await Promise.all([bridge.stderr, fixture.stdout].map((input) => once(createInterface({ input }), 'line')));
  url = /http:.*$/.exec(line)[0];
});
after(async () => {
  for (const each of started) each.kill();
  await rm(cache, { recursive: true, force: true });
});

for (const { suite, revision, scope } of SUITES) {
  test(`${suite}, ${revision}`, { timeout: 120_000 }, async () => {
    const run = spawn(process.execPath, [`node_modules/${suite}/dist/index.js`, 'server', '--url', url, ...scope,
      '--expected-failures', `expected-${revision}.yml`], { stdio: ['ignore', 'pipe', 'inherit'] });
    const [said, [code]] = await Promise.all([text(run.stdout), once(run, 'exit')]);
    assert.equal(code, 0, said.slice(said.indexOf('=== SUMMARY')));
  });
}
