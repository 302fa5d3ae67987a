// The Inspector's command line through the bridge, a process for each request: over standard input and output and over
// Streamable HTTP, with no application and with one.
//
//   node --test inspector.test.mjs      with VELMOOR naming the command, INTEROP_SERVER the server behind it, on port 8720
import assert from 'node:assert/strict';
import { execFile } from 'node:child_process';
import { test } from 'node:test';
import { promisify } from 'node:util';

import { ENVIRONMENT, endApplication, startApplication, startServing } from './bridge_processes.mjs';

const WAIT = ['--wait', '1'];
const LIMIT = { timeout: 60_000 };

async function inspect(target, ...request) {
  const { stdout } = await promisify(execFile)(
    'node_modules/.bin/mcp-inspector-cli', ['--cli', ...target.slice(0, 2), '--method', ...request, ...target.slice(2)],
    { env: ENVIRONMENT, timeout: 30_000 });
  return JSON.parse(stdout);
}

async function listsAndCalls(target) {
  const { tools } = await inspect(target, 'tools/list');
  const names = tools.map((tool) => tool.name);
  assert.ok(names.includes('app_list') && names.includes('openxr_set_head_pose'));

  const absent = await inspect(target, 'tools/call', '--tool-name', 'openxr_get_session_info');
  assert.equal(absent.isError, true);
  assert.match(absent.content[0].text, /no application with the Velmoor layer came up in 1 s/);

  const application = await startApplication();
  try {
    const call = ['tools/call', '--tool-name', 'echo', '--tool-arg', 'message=a = b, “čaj”'];
    assert.deepEqual((await inspect(target, ...call)).content, [{ type: 'text', text: 'a = b, “čaj”' }]);
  } finally {
    await endApplication(application);
  }
}

test('stdio', LIMIT, () => listsAndCalls([process.env.VELMOOR, 'mcp', ...WAIT]));

test('HTTP', LIMIT, async () => {
  const { url, end } = await startServing(...WAIT);
  try {
    await listsAndCalls([url.href]);
  } finally {
    await end();
  }
});
