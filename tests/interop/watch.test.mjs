// The page that watches, in Chromium, while a client operates the demo on the simulator; and the report of a test.
//
//   node --test watch.test.mjs      with VELMOOR naming the command, the demo beside it, CHROMIUM the browser
import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { mkdtemp, rm, writeFile } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import { dirname, join } from 'node:path';
import { pathToFileURL } from 'node:url';
import { test } from 'node:test';
import { ENVIRONMENT, startServing } from './bridge_processes.mjs';
import { openPage } from './chromium.mjs';

const LIMIT = { timeout: 120_000 };
const DEMO = join(dirname(process.env.VELMOOR), 'velmoor_demo');
const HOSTILE = '<img src="x" onerror="throw new Error(1)">';
Object.assign(ENVIRONMENT, { VELMOOR_SIM_EYE_SIZE: '128x128', VELMOOR_SIM_STRICT: '1' });

async function connect(url) {
  const headers = { 'Content-Type': 'application/json', Accept: 'application/json, text/event-stream' };
  let id = 0;
  const send = async (message) => {
    const answer = await fetch(url, { method: 'POST', headers, body: JSON.stringify({ jsonrpc: '2.0', ...message }) });
    headers['Mcp-Session-Id'] ??= answer.headers.get('mcp-session-id');
    return (await answer.text()).split('data: ').at(-1);
  };
  const params = { protocolVersion: '2025-11-25', capabilities: {}, clientInfo: { name: 'watched', version: '1' } };
  await send({ id: ++id, method: 'initialize', params });
  await send({ method: 'notifications/initialized' });
  return async (name, given = {}) => JSON.parse(await send({ id: ++id, method: 'tools/call', params: { name, arguments: given } })).result;
}

// Runs in a blank page. How the pixels of a part of a screenshot differ from a picture that is drawn at that place, on
// average over the colours, from 0 to 255; and how many colours the part has.
async function compare(screenshot, { x, y, width, height }, picture) {
  const pixels = async (base64, ...part) => {
    const image = await createImageBitmap(await (await fetch(`data:image/png;base64,${base64}`)).blob());
    const canvas = new OffscreenCanvas(width, height).getContext('2d');
    canvas.imageSmoothingQuality = 'high';
    canvas.drawImage(image, ...part, 0, 0, width, height);
    return canvas.getImageData(0, 0, width, height).data;
  };
  const shown = await pixels(screenshot, x, y, width, height);
  const expected = picture ? await pixels(picture) : shown;
  let sum = 0;
  const colours = new Set();
  shown.forEach((value, i) => {
    sum += Math.abs(value - expected[i]);
    if (i % 4 === 0) colours.add((value << 16) | (shown[i + 1] << 8) | shown[i + 2]);
  });
  return { difference: sum / shown.length, colours: colours.size };
}

// Where an element is, and of a square picture what is not its margin.
const part = (selector) => `(() => {
  const element = document.querySelector('${selector}');
  const { x, y, width, height } = element.getBoundingClientRect();
  const side = element.naturalWidth ? Math.min(width, height) : 0;
  return side ? { x: x + (width - side) / 2, y: y + (height - side) / 2, width: Math.floor(side), height: Math.floor(side) }
    : { x, y, width: Math.floor(width), height: Math.floor(height) };
})()`;

async function onScreen(page, judge, selector, picture) {
  const place = await page.evaluate(part(selector));
  const screenshot = await page.screenshot();
  return judge.evaluate(`(${compare})('${screenshot}', ${JSON.stringify(place)}, ${JSON.stringify(picture ?? null)})`);
}

test('shows what an agent does, sees and where it is', LIMIT, async (t) => {
  const { url, end } = await startServing('--watch', '--', DEMO);
  t.after(end);
  const page = await openPage(t);
  const judge = await openPage(t);
  await page.size(1200, 760);
  await page.open(new URL('/watch', url).href);
  const call = await connect(url);
  assert.ok(!(await call('app_start')).isError);
  await call('openxr_set_head_pose', { base_space: 'stage', position: [0.5, 1.6, 0.25], orientation: [0, 0, 0, 1] });
  const { content: [{ data }] } = await call('openxr_capture_composited_image', { eye: 'right' });
  await call('xr_look_at', { entity: HOSTILE });

  await page.until("document.querySelectorAll('#calls details.passed').length === 3 && document.querySelector('#calls details.failed')");
  await page.until("document.getElementById('places').textContent.includes('0.50, 1.60, 0.25 m · heading straight')");
  await page.until("document.getElementById('session').textContent === 'focused' && /^\\d+ per s$/.test(document.getElementById('frames').textContent)");
  assert.equal(await page.evaluate("document.querySelector('#calls details.failed .note').textContent"), JSON.stringify({ entity: HOSTILE }));
  assert.match(await page.evaluate("document.querySelector('#plan title').textContent"), /^Head at x 0.50 m, z 0.25 m, heading straight.*TABLE 2/);

  // What is on the screen is what the agent got, and the plan is drawn.
  await page.until("document.querySelector('figure:nth-of-type(2) .frame img')?.complete");
  const eye = await onScreen(page, judge, 'figure:nth-of-type(2) img', data);
  assert.ok(eye.difference < 3 && eye.colours > 200, `the right eye's picture: ${JSON.stringify(eye)}`);
  const plan = await onScreen(page, judge, '#plan');
  assert.ok(plan.colours > 20, `the plan has ${plan.colours} colours`);
  const [dot] = await page.evaluate("[document.querySelector('.device.head circle')].map((each) => getComputedStyle(each).fill)");
  assert.equal(dot, 'rgb(11, 95, 192)');

  // Keys: the newest call is the first that is reached, and opens.
  await page.press('Tab');
  await page.press('Enter', '\r');
  await page.until("document.activeElement.closest('li') === document.querySelector('#calls > li') && document.activeElement.parentElement.open");
  await page.until("document.querySelector('#calls .body')?.textContent.includes('onerror')");
  assert.equal(await page.evaluate("document.querySelectorAll('#calls img, [onerror]').length"), 0);

  // A picture that a row opens to is the one that was answered.
  await page.evaluate("document.querySelectorAll('#calls summary')[1].click()");
  await page.until("document.querySelector('#calls .body img')?.naturalWidth === 128");
  for (const width of [360, 600, 1000]) {
    await page.size(width, 700);
    assert.equal(await page.evaluate('document.documentElement.scrollWidth > innerWidth'), false, `${width} pixels`);
  }

  // Who looks makes no frame go by.
  await call('sim_pause');
  const frame = async () => JSON.parse((await call('openxr_get_frame_info')).content[0].text).frame_end_info.display_time.XrTime;
  const held = await frame();
  await page.until("/^none for ([3-9]|\\d\\d+) s$/.test(document.getElementById('frames').textContent)");
  assert.equal(await frame(), held);

  // A page that is opened anew shows what was.
  await page.open(new URL('/watch', url).href);
  await page.until("document.querySelectorAll('#calls > li').length === 7 && document.querySelector('figure:nth-of-type(2) .frame img')");
  assert.deepEqual(page.faults, []);
});

test('the report of a test shows its pictures', LIMIT, async (t) => {
  const directory = await mkdtemp(join(tmpdir(), 'velmoor-report-'));
  t.after(() => rm(directory, { recursive: true }));
  const pose = '{call: openxr_set_head_pose, arguments: {base_space: stage, position: [0, 1.6, 0.5], orientation: [0, 0, 0, 1]}}';
  const run = async (colour, expected, ...options) => {
    await writeFile(join(directory, 'cube.yaml'), `steps:\n  - {call: spawn_cube, arguments: {position: [0, 1.5, -1], color: ${colour}}}\n  - ${pose}\n  - {wait: {frames: 5}}\n  - {picture: cube}\n`);
    const ended = spawnSync(process.env.VELMOOR, ['test', ...options, 'cube.yaml', '--', DEMO], { cwd: directory, env: ENVIRONMENT, encoding: 'utf8' });
    assert.equal(ended.status, expected, ended.stdout + ended.stderr);
  };
  await run('red', 0, '--update');
  await run('blue', 1);
  const page = await openPage(t);
  await page.size(360, 900);
  await page.open(pathToFileURL(join(directory, 'velmoor-test', 'report.html')).href);
  await page.until("[...document.images].filter((each) => each.naturalWidth === 128).length === 4");
  assert.deepEqual(await page.evaluate("[...document.images].map((each) => each.alt)"), ['expected', 'actual', 'difference', 'last picture']);
  assert.equal(await page.evaluate('document.documentElement.scrollWidth > innerWidth'), false);
  assert.deepEqual(page.faults, []);
});
