// Both generations of the official TypeScript client against the server. Each connects over the event stream,
// lists the tools, calls them one by one and many at once, and looks at what comes back.
//
//   node --test interop.test.mjs      with INTEROP_SERVER naming the server program
import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { createInterface } from 'node:readline';
import { after, before, describe, test } from 'node:test';

import * as second from '@modelcontextprotocol/client';
import { Client as FirstClient } from '@modelcontextprotocol/sdk/client/index.js';
import { SSEClientTransport as FirstTransport } from '@modelcontextprotocol/sdk/client/sse.js';
import { StreamableHTTPClientTransport as FirstStreamable } from '@modelcontextprotocol/sdk/client/streamableHttp.js';

const ME = { name: 'interop-test', version: '1.0' };
const LIMIT = { timeout: 20_000 };

const CLIENTS = [
  {
    name: 'sdk 1.x',
    client: () => new FirstClient(ME),
    transport: (url) => new FirstTransport(url),
    streamable: (url) => new FirstStreamable(url),
    first: 'initialize',
  },
  {
    name: 'client 2.x',
    client: () => new second.Client(ME),
    transport: (url) => new second.SSEClientTransport(url),
    streamable: (url) => new second.StreamableHTTPClientTransport(url),
    first: 'initialize',
  },
  {
    name: 'client 2.x, negotiating',
    client: () => new second.Client(ME, { versionNegotiation: { mode: 'auto' } }),
    transport: (url) => new second.SSEClientTransport(url),
    streamable: (url) => new second.StreamableHTTPClientTransport(url),
    first: 'server/discover',
  },
];

let server;
let url;

before(async () => {
  server = spawn(process.env.INTEROP_SERVER, { stdio: ['pipe', 'pipe', 'ignore'] });
  for await (const line of createInterface({ input: server.stdout })) {
    const port = /^port (\d+)$/.exec(line);
    if (port) {
      url = new URL(`http://127.0.0.1:${port[1]}/sse`);
      break;
    }
  }
  assert.ok(url, 'the server did not come up');
  server.stdout.resume();
});

after(async () => {
  const ended = new Promise((resolve) => server.once('exit', resolve));
  server.stdin.end();
  assert.equal(await ended, 0);
});

// A connected client, and all that it sent.
async function connect(kind) {
  const client = kind.client();
  const transport = kind.transport(url);
  const sent = [];
  const send = transport.send.bind(transport);
  transport.send = (message, ...rest) => {
    sent.push(message);
    return send(message, ...rest);
  };
  await client.connect(transport, LIMIT);
  return { client, sent };
}

const call = (client, name, args) => client.callTool({ name, arguments: args }, ...extra(client));
// The first generation takes a result schema before the options.
const extra = (client) => (client instanceof FirstClient ? [undefined, LIMIT] : [LIMIT]);

for (const kind of CLIENTS) {
  describe(kind.name, LIMIT, () => {
    let client;
    let sent;
    before(async () => ({ client, sent } = await connect(kind)));
    after(() => client.close());

    test('shakes hands', () => {
      assert.equal(sent[0].method, kind.first);
      if (kind.first === 'server/discover') assert.equal(typeof sent[0].id, 'string');
      assert.deepEqual({ ...client.getServerVersion() }, { name: 'interop', version: '1.2.3' });
      assert.deepEqual({ ...client.getServerCapabilities() }, { tools: {} });
      const offered = sent.find((message) => message.method === 'initialize').params.protocolVersion;
      assert.equal(offered, '2025-11-25');
    });

    test('lists the tools', async () => {
      const { tools } = await client.listTools(undefined, LIMIT);
      assert.deepEqual(tools.map((tool) => tool.name), ['broken', 'echo', 'picture', 'wait']);
      assert.deepEqual({ ...tools[1].annotations }, {
        title: 'Echo', readOnlyHint: true, destructiveHint: false, idempotentHint: false, openWorldHint: true,
      });
      assert.deepEqual(tools[1].inputSchema.properties, { message: { type: 'string' } });
    });

    test('reads every kind of content', async () => {
      for (const message of ['plain', '', 'line\nline\r\n\r\ndata: x', '“čaj” 🫖 \u0000', 'x'.repeat(1 << 20)]) {
        const answer = await call(client, 'echo', { message });
        assert.deepEqual(answer.content, [{ type: 'text', text: message }]);
        assert.equal(answer.isError, false);
      }
      assert.deepEqual((await call(client, 'picture', {})).content, [
        { type: 'text', text: 'one pixel' },
        { type: 'image', data: 'iVBORw0KGgo=', mimeType: 'image/png' },
      ]);
    });

    test('is told what went wrong', async () => {
      const answer = await call(client, 'broken', {});
      assert.equal(answer.isError, true);
      assert.deepEqual(answer.content, [{ type: 'text', text: 'out of order' }]);
      await assert.rejects(call(client, 'no_such_tool', {}), { code: -32602, message: /Tool not found: no_such_tool/ });
    });

    test('gets every answer of many calls at once, each to its caller', async () => {
      const messages = Array.from({ length: 500 }, (_, i) => `message ${i}`);
      const answers = await Promise.all(messages.map((message) => call(client, 'echo', { message })));
      assert.deepEqual(answers.map((answer) => answer.content[0].text), messages);
    });

    // A client that is given a bare URL tries the newer transport first, and takes this refusal as the word to
    // fall back to the event stream.
    test('sees that the newer transport is not spoken here', async () => {
      await assert.rejects(kind.client().connect(kind.streamable(url), LIMIT), (error) => {
        assert.match(`${error.code} ${error.status} ${error.message}`, /404/);
        return true;
      });
    });
  });
}
