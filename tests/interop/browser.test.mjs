// A page in Chromium, served by somebody else than the server that it talks to: it opens the event stream, and
// calls a tool by posts that the browser asks leave for first.
//
//   node --test browser.test.mjs      with INTEROP_SERVER naming the server program, CHROMIUM the browser
import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { createServer } from 'node:http';
import { createInterface } from 'node:readline';
import { test } from 'node:test';
import { startChromium } from './chromium.mjs';

const LIMIT = { timeout: 40_000 };
// A host that the browser is told to look for on this machine, as a page can arrange for itself by its name server.
const ELSEWHERE = 'elsewhere.example';

// Runs in the browser. What it gives back is posted to where the page came from.
async function talk(server) {
  const stream = new EventSource(`${server}/sse`);
  const heard = [];
  let wake = () => {};
  const hear = (what) => (heard.push(what), wake());
  for (const type of ['endpoint', 'message']) stream.addEventListener(type, ({ data }) => hear({ type, data }));
  stream.onerror = () => hear({ type: 'error' });
  const next = async () => {
    while (heard.length === 0) await new Promise((resolve) => (wake = resolve));
    return heard.shift();
  };
  const post = (uri, message, headers) => fetch(server + uri, {
    method: 'POST',
    headers: { 'Content-Type': 'application/json', ...headers },
    body: JSON.stringify({ jsonrpc: '2.0', ...message }),
  }).then((answer) => answer.status, (error) => error.name);
  const first = await next();
  if (first.type !== 'endpoint') {
    stream.close();
    return { first: first.type, post: await post('/message?session_id=none', { id: 0, method: 'ping' }) };
  }
  const call = async (message) => {
    await post(first.data, message);
    return JSON.parse((await next()).data).result;
  };
  const params = { protocolVersion: '2025-11-25', capabilities: {}, clientInfo: { name: 'page', version: '1' } };
  const { serverInfo } = await call({ id: 1, method: 'initialize', params });
  const initialized = await post(first.data, { method: 'notifications/initialized' });
  const echo = { id: 2, method: 'tools/call', params: { name: 'echo', arguments: { message: 'čaj' } } };
  let result;
  while (!result) result = await call(echo);  // until the notification has been taken in
  // The browser does hold the server to what it lets pages do: this header is not among it.
  const unasked = await post(first.data, { method: 'x' }, { 'X-Unasked': '1' });
  stream.close();
  return { first: first.type, serverInfo, initialized, content: result.content, unasked };
}

const SERVED = {
  first: 'endpoint', serverInfo: { name: 'interop', version: '1.2.3' }, initialized: 202,
  content: [{ type: 'text', text: 'čaj' }], unasked: 'TypeError',
};
const REFUSED = { first: 'error', post: 'TypeError' };

async function startServer(t, options) {
  const server = spawn(process.env.INTEROP_SERVER, options, { stdio: ['pipe', 'pipe', 'ignore'] });
  const ended = once(server, 'exit');
  t.after(() => (server.stdin.end(), ended));
  const [line] = await once(createInterface({ input: server.stdout }), 'line', { signal: t.signal });
  return /^port (\d+)$/.exec(line)[1];
}

// Serves the page that talks to `server`, and gives its port; `outcome` is told what became of it.
async function startPages(t, server, outcome) {
  const pages = createServer(async (request, response) => {
    response.setHeader('Content-Type', 'text/html; charset=utf-8');
    if (request.method !== 'POST') {
      response.end(`<script type="module">
        const outcome = await (${talk})('${server}').catch(String);
        await fetch('/outcome', { method: 'POST', body: JSON.stringify(outcome) });
      </script>`);
      return;
    }
    outcome(JSON.parse((await request.toArray()).join('')));
    response.end();
  });
  t.after(() => (pages.closeAllConnections(), pages.close()));
  pages.listen(0, '127.0.0.1');
  await once(pages, 'listening');
  return pages.address().port;
}

async function browse(t, url) {
  const { ended } = await startChromium(t, [`--host-resolver-rules=MAP ${ELSEWHERE} 127.0.0.1`, url]);
  return ended.then(([code]) => assert.fail(`the browser ended with ${code}`));
}

// What becomes of a page of `page` that talks to a server under the name `host`.
async function outcomeOf(t, { page, host, options }) {
  const server = `http://${host}:${await startServer(t, options)}`;
  let outcome;
  const told = new Promise((resolve) => (outcome = resolve));
  const port = await startPages(t, server, outcome);
  return Promise.race([told, browse(t, `http://${page}:${port}/`)]);
}

for (const { name, page, host, options, outcome } of [
  { name: 'every page is served', page: ELSEWHERE, host: '127.0.0.1', options: [], outcome: SERVED },
  { name: 'fenced: a page of this machine', page: 'localhost', host: '127.0.0.1', options: ['--local-only'], outcome: SERVED },
  { name: 'fenced: a page from elsewhere', page: ELSEWHERE, host: '127.0.0.1', options: ['--local-only'], outcome: REFUSED },
  { name: 'fenced: this machine under another name', page: 'localhost', host: ELSEWHERE, options: ['--local-only'], outcome: REFUSED },
]) {
  test(name, LIMIT, async (t) => assert.deepEqual(await outcomeOf(t, { page, host, options }), outcome));
}
