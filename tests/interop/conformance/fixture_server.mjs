// An application for the conformance suite: the tools that its scenarios call, over HTTP and Server-Sent Events on
// the layer's port. Ends with its standard input.
import { randomUUID } from 'node:crypto';
import { createServer } from 'node:http';

const PIXEL =
  'iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAYAAAAfFcSJAAAADUlEQVR42mP8z8BQDwAEhQGAhKmMIQAAAABJRU5ErkJggg==';
const SILENCE = 'UklGRiQAAABXQVZFZm10IBAAAAABAAEARKwAAIhYAQACABAAZGF0YQAAAAA=';
const text = (words) => ({ type: 'text', text: words });
const resource = (uri, mimeType, words) => ({ type: 'resource', resource: { uri, mimeType, text: words } });
const picture = { type: 'image', data: PIXEL, mimeType: 'image/png' };
const pause = () => new Promise((resolve) => setTimeout(resolve, 50));
const declarations = new Map();
const NOTHING = { type: 'object', properties: {} };
const ADDRESS = {
  $schema: 'https://json-schema.org/draft/2020-12/schema', type: 'object',
  $defs: { address: { $anchor: 'addressDef', type: 'object', properties: { street: { type: 'string' }, city: { type: 'string' } } } },
  properties: { name: { type: 'string' }, address: { $ref: '#/$defs/address' }, contactMethod: { type: 'string', enum: ['phone', 'email'] },
    phone: { type: 'string' }, email: { type: 'string' } },
  allOf: [{ anyOf: [{ required: ['phone'] }, { required: ['email'] }] }],
  if: { properties: { contactMethod: { const: 'phone' } }, required: ['contactMethod'] },
  then: { required: ['phone'] }, else: { required: ['email'] },
  additionalProperties: false,
};

const TOOLS = {
  test_simple_text: () => [text('This is a simple text response for testing.')],
  test_image_content: () => [picture],
  test_audio_content: () => [{ type: 'audio', data: SILENCE, mimeType: 'audio/wav' }],
  test_embedded_resource: () => [resource('test://embedded-resource', 'text/plain', 'This is an embedded resource content.')],
  test_multiple_content_types: () => [
    text('Multiple content types test:'), picture,
    resource('test://mixed-content-resource', 'application/json', '{"test":"data","value":123}'),
  ],
  test_error_handling: () => { throw new Error('This tool intentionally returns an error for testing'); },
  test_tool_with_progress: async (report) => {
    for (const progress of [0, 50, 100]) {
      report({ progress, total: 100 });
      await pause();
    }
    return [text('progressed')];
  },
  test_logging_tool: () => [text('logs nothing to who has not asked for it')],
  test_streaming_elicitation: () => [text('asks the client for nothing')],
  json_schema_2020_12_tool: () => [text('an address')],
};
TOOLS.test_trigger_tool_change = () => {
  declare(`test_added_${declarations.size}`);
  for (const send of sessions.values()) send({ method: 'notifications/tools/list_changed' });
  return [text('added one')];
};

function declare(name, inputSchema = NOTHING) {
  declarations.set(name, { name, description: `For the conformance suite: ${name}`, inputSchema });
}
for (const name of Object.keys(TOOLS)) declare(name, name === 'json_schema_2020_12_tool' ? ADDRESS : NOTHING);

async function call({ name, _meta }, send) {
  if (!TOOLS[name]) throw { code: -32602, message: `Unknown tool: ${name}` };
  const progressToken = _meta?.progressToken;
  const report = (step) =>
    progressToken !== undefined && send({ method: 'notifications/progress', params: { progressToken, ...step } });
  try {
    return { content: await TOOLS[name](report) };
  } catch (error) {
    return { content: [text(error.message)], isError: true };
  }
}

const METHODS = {
  initialize: () => ({ protocolVersion: '2025-11-25', capabilities: { tools: {} }, serverInfo: { name: 'fixture', version: '1' } }),
  'tools/list': () => ({ tools: [...declarations.values()] }),
  'tools/call': call,
};

const sessions = new Map();
createServer(async (request, response) => {
  const { pathname, searchParams } = new URL(request.url, 'http://fixture');
  if (request.method === 'GET' && pathname === '/sse') {
    const id = randomUUID();
    response.writeHead(200, { 'content-type': 'text/event-stream' });
    const write = (event, data) => response.write(`event: ${event}\ndata: ${data}\n\n`);
    sessions.set(id, (message) => write('message', JSON.stringify({ jsonrpc: '2.0', ...message })));
    response.on('close', () => sessions.delete(id));
    return write('endpoint', `/message?session_id=${id}`);
  }
  const send = sessions.get(searchParams.get('session_id'));
  if (!send) return response.writeHead(404).end();
  const { id, method, params } = JSON.parse(Buffer.concat(await request.toArray()));
  response.writeHead(202).end();
  if (id === undefined) return;
  try {
    if (!METHODS[method]) throw { code: -32601, message: `Method not found: ${method}` };
    send({ id, result: await METHODS[method](params, send) });
  } catch ({ code = -32603, message }) {
    send({ id, error: { code, message } });
  }
}).listen(8720, '127.0.0.1', () => console.log('serving'));
process.stdin.on('end', () => process.exit()).resume();
