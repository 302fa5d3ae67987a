// Both generations of the official TypeScript client through the bridge: over standard input and output and over
// Streamable HTTP, with applications that come late, go in the middle of a call, and run two at a time.
//
//   node --test bridge.test.mjs      with VELMOOR naming the command, INTEROP_SERVER the server behind it, on port 8720
import assert from 'node:assert/strict';
import { execFile } from 'node:child_process';
import { after, before, describe, test } from 'node:test';
import { promisify } from 'node:util';

import * as second from '@modelcontextprotocol/client';
import { StdioClientTransport as SecondStdio } from '@modelcontextprotocol/client/stdio';
import { Client as FirstClient } from '@modelcontextprotocol/sdk/client/index.js';
import { StdioClientTransport as FirstStdio } from '@modelcontextprotocol/sdk/client/stdio.js';
import { StreamableHTTPClientTransport as FirstHttp } from '@modelcontextprotocol/sdk/client/streamableHttp.js';

import { ENVIRONMENT, endApplication, startApplication, startServing } from './bridge_processes.mjs';

const ME = { name: 'bridge-test', version: '1.0' };
const LIMIT = { timeout: 30_000 };
const COMMAND = { command: process.env.VELMOOR, args: ['mcp'], env: ENVIRONMENT };
const GENERATIONS = [
  { name: 'sdk 1.x', client: () => new FirstClient(ME), Stdio: FirstStdio, Http: FirstHttp },
  {
    name: 'client 2.x', client: () => new second.Client(ME),
    Stdio: SecondStdio, Http: second.StreamableHTTPClientTransport,
  },
  {
    name: 'client 2.x, negotiating',
    client: () => new second.Client(ME, { versionNegotiation: { mode: 'auto' } }),
    Stdio: SecondStdio, Http: second.StreamableHTTPClientTransport,
  },
];

const CLIENTS = GENERATIONS.flatMap(({ name, client, Stdio, Http }) => [
  { name: `${name}, stdio`, client, open: async () => ({ transport: new Stdio(COMMAND), end: () => {} }) },
  {
    name: `${name}, HTTP`, client,
    open: async () => {
      const { url, end } = await startServing();
      return { transport: new Http(url), end };
    },
  },
]);

// The first generation takes a result schema before the options.
const call = (client, name, args, options = {}) => client.callTool(
  { name, arguments: args }, ...(client instanceof FirstClient ? [undefined] : []), { ...LIMIT, ...options });
const echo = async (client, message, more = {}) => (await call(client, 'echo', { message, ...more })).content[0].text;

// A call waits only for a tool that was seen before: no list has it otherwise.
before(async () => {
  const application = await startApplication();
  await promisify(execFile)(process.env.VELMOOR, ['call', 'echo', '{}'], { env: ENVIRONMENT });
  await endApplication(application);
});

for (const kind of CLIENTS) {
  describe(kind.name, { timeout: 60_000 }, () => {
    let client;
    let application;
    let served;
    before(async () => {
      client = kind.client();
      served = await kind.open();
      await client.connect(served.transport, LIMIT);
    });
    after(async () => {
      await client.close();
      await served.end();
      if (application) await endApplication(application);
    });

    test('lists all tools with no application', async () => {
      const { tools } = await client.listTools(undefined, LIMIT);
      const names = tools.map((tool) => tool.name);
      assert.ok(names.includes('app_list') && names.includes('openxr_capture_composited_image'));
      assert.equal(client.getServerVersion().name, 'velmoor');
    });

    test('hears of progress while the application is awaited', async () => {
      const progress = [];
      const answer = call(client, 'echo', { message: 'late' }, { onprogress: (step) => progress.push(step) });
      await new Promise((resolve) => setTimeout(resolve, 1200));
      application = await startApplication();
      assert.equal((await answer).content[0].text, 'late');
      assert.match(progress[0].message, /no application runs/);
    });

    test('gets every kind of content, and every answer of many calls at once', async () => {
      assert.deepEqual((await call(client, 'picture', {})).content, [
        { type: 'text', text: 'one pixel' },
        { type: 'image', data: 'iVBORw0KGgo=', mimeType: 'image/png' },
      ]);
      const messages = ['line\nline\r\n', '“čaj” 🫖 \u0000', 'x'.repeat(1 << 20)];
      messages.push(...Array.from({ length: 500 }, (_, i) => `message ${i}`));
      assert.deepEqual(await Promise.all(messages.map((message) => echo(client, message))), messages);
    });

    test('is told what went wrong', async () => {
      assert.equal((await call(client, 'broken', {})).isError, true);
      await assert.rejects(call(client, 'no_such_tool', {}), { code: -32602, message: /no_such_tool/ });
    });

    test('cancels one call and no other', async () => {
      const stop = new AbortController();
      const other = call(client, 'wait', { message: 'other' });
      const cancelled = call(client, 'wait', { message: 'cancelled' }, { signal: stop.signal });
      setTimeout(() => stop.abort(), 100);
      await assert.rejects(cancelled);
      assert.equal((await other).content[0].text, 'other');
    });

    test('outlives a restart of the application in the middle of a call', async () => {
      const lost = call(client, 'wait', { message: 'lost' });
      await new Promise((resolve) => setTimeout(resolve, 200));
      await endApplication(application);
      const answer = await lost;
      assert.equal(answer.isError, true);
      assert.match(answer.content[0].text, /outcome is unknown; the call was not repeated/);
      application = await startApplication();
      assert.equal(await echo(client, 'again'), 'again');
    });

    test('reaches the one of two applications that it names', async () => {
      const other = await startApplication();
      try {
        let answer;
        do answer = await call(client, 'echo', { message: 'which' }); while (!answer.isError);
        assert.match(answer.content[0].text, /2 applications run/);
        for (const { pid } of [application, other]) assert.equal(await echo(client, 'm', { app: `${pid}` }), 'm');
      } finally {
        await endApplication(other);
      }
      assert.equal(await echo(client, 'alone'), 'alone');
    });
  });
}
