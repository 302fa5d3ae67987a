// Chromium for the tests: started with a profile of its own, and operated over the pipe of its debugging protocol.
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { mkdtemp, rm } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import { join } from 'node:path';

// Ends with the test `t`.
export async function startChromium(t, options, pipes = []) {
  const profile = await mkdtemp(join(tmpdir(), 'velmoor-page-'));
  const browser = spawn(process.env.CHROMIUM, [
    '--headless=new', '--no-sandbox', '--disable-gpu', '--disable-dev-shm-usage', '--disable-breakpad', '--no-first-run',
    '--disable-background-networking', '--disable-component-update', '--disable-sync', `--user-data-dir=${profile}`, ...options,
  ], { stdio: ['ignore', 'ignore', 'ignore', ...pipes], detached: true, env: { ...process.env, HOME: profile, XDG_CONFIG_HOME: profile } });
  const ended = once(browser, 'exit');
  t.after(async () => {
    process.kill(-browser.pid, 'SIGKILL');
    await ended;
    await rm(profile, { recursive: true, force: true, maxRetries: 10 });
  });
  return { browser, ended };
}

// A blank page. `faults` gets what its console tells of errors, refused sources among them.
export async function openPage(t) {
  const { browser } = await startChromium(t, ['--remote-debugging-pipe'], ['pipe', 'pipe']);
  const [, , , commands, answers] = browser.stdio;
  const waiting = new Map();
  const faults = [];
  let rest = '';
  answers.setEncoding('utf8').on('data', (chunk) => {
    const messages = (rest + chunk).split('\0');
    rest = messages.pop();
    for (const { id, result, error, method, params } of messages.map((each) => JSON.parse(each))) {
      if (id) waiting.get(id)(error ? Promise.reject(new Error(error.message)) : result);
      if (method === 'Runtime.exceptionThrown') faults.push(params.exceptionDetails.exception?.description);
      if (method === 'Log.entryAdded' && params.entry.level === 'error') faults.push(`${params.entry.text} ${params.entry.url ?? ''}`);
      if (method === 'Runtime.consoleAPICalled' && params.type === 'error') faults.push(JSON.stringify(params.args));
    }
  });
  let last = 0;
  let sessionId;
  const send = (method, params = {}) => new Promise((resolve) => {
    waiting.set(++last, resolve);
    commands.write(`${JSON.stringify({ id: last, method, params, sessionId })}\0`);
  });
  const { targetId } = await send('Target.createTarget', { url: 'about:blank' });
  ({ sessionId } = await send('Target.attachToTarget', { targetId, flatten: true }));
  for (const domain of ['Page', 'Runtime', 'Log']) await send(`${domain}.enable`);

  const evaluate = async (expression) => {
    const { result, exceptionDetails } = await send('Runtime.evaluate', { expression, awaitPromise: true, returnByValue: true });
    if (exceptionDetails) throw new Error(`${expression}: ${exceptionDetails.exception?.description}`);
    return result.value;
  };
  return {
    faults, send, evaluate,
    open: (url) => send('Page.navigate', { url }),
    size: (width, height) => send('Emulation.setDeviceMetricsOverride', { width, height, deviceScaleFactor: 1, mobile: false }),
    media: (features) => send('Emulation.setEmulatedMedia', { features: Object.entries(features).map(([name, value]) => ({ name, value })) }),
    screenshot: async () => (await send('Page.captureScreenshot', { format: 'png' })).data,
    // Until an expression holds, with a bound.
    until: async (expression) => {
      for (let i = 0; i < 400; ++i) {
        if (await evaluate(expression)) return;
        await new Promise((resolve) => setTimeout(resolve, 50));
      }
      throw new Error(`it did not come about: ${expression}; ${faults.join('; ')}`);
    },
    press: async (key, text) => {
      await send('Input.dispatchKeyEvent', { type: 'keyDown', key, code: key, text, windowsVirtualKeyCode: { Tab: 9, Enter: 13 }[key] });
      await send('Input.dispatchKeyEvent', { type: 'keyUp', key, code: key });
    },
  };
}
