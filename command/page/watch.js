// The page that watches: takes events of the server, and shows what they tell.
const byId = (id) => document.getElementById(id);
const RETRY_MS = 3000;
const EYES = { left: 'Left eye', right: 'Right eye' };

const state = { run: null, rows: new Map(), room: null, lastBegun: null };
const plan = new Plan(byId('plan'));

function ago(unixMs) {
  const seconds = Math.max(0, (Date.now() - unixMs) / 1000);
  if (seconds < 60) return `${Math.floor(seconds)} s ago`;
  return seconds < 5400 ? `${Math.round(seconds / 60)} min ago` : `${Math.round(seconds / 3600)} h ago`;
}

const clockTime = (unixMs) => new Date(unixMs).toLocaleTimeString([], { hour12: false });

// The same text is not set again: a selection in it stays, and nothing is read out twice.
function setText(element, text) {
  if (element.textContent !== text) element.textContent = text;
}

function callBody({ arguments: given, texts = [], pictures = [], result }) {
  const shown = texts.map((text) => block('Result', pretty(text)));
  for (const number of pictures) shown.push(keptFigure(number, 'Result'));
  if (shown.length === 0) shown.push(make('p', {}, result === 'running' ? 'It still runs.' : 'There is no result.'));
  return [block('Arguments', pretty(given)), ...shown];
}

function keptFigure(number, caption) {
  const made = figure(`/watch/pictures/${number}`, caption);
  made.querySelector('img').addEventListener('error', () => made.replaceChildren(make('p', {}, 'The picture is not kept any more.')));
  return made;
}

function showCall(call) {
  let row = state.rows.get(call.id);
  if (!row) {
    row = { entry: new Entry(() => callBody(row.call)) };
    state.rows.set(call.id, row);
    byId('calls').prepend(row.entry.element);
  }
  row.call = call;
  const note = call.arguments === '{}' ? '' : call.arguments.slice(0, 300);
  row.entry.show({ result: call.result, title: call.tool, note, time: clockTime(call.begun), took: took(call) });
  state.lastBegun = Math.max(state.lastBegun ?? 0, call.begun);
}

function took({ result, seconds, begun }) {
  return result === 'running' ? duration(Math.max(0, (Date.now() - begun) / 1000)) : duration(seconds);
}

// As many as the server keeps.
function forgetOldCalls() {
  for (const [id, row] of [...state.rows].sort(([one], [other]) => one - other)) {
    if (state.rows.size <= 200) break;
    row.entry.element.remove();
    state.rows.delete(id);
  }
}

const eyes = Object.fromEntries(Object.entries(EYES).map(([name, title]) => {
  const frame = make('div', { class: 'frame' }, make('p', {}, 'No picture yet'));
  const caption = make('figcaption', {}, title);
  byId('eyes').append(make('figure', {}, frame, caption));
  return [name, { title, frame, caption, told: null }];
}));

function showEye(name, told) {
  const eye = eyes[name];
  eye.told = told;
  const image = make('img', { alt: `${eye.title}, as ${told.tool} showed it`, src: `/watch/pictures/${told.picture}` });
  image.addEventListener('load', () => eye.frame.replaceChildren(image));
}

function showRoom(room) {
  if (state.room?.number !== room.number) plan.clearTrails();
  state.room = room;
}

function showFacts() {
  const room = state.room ?? {};
  const { application, frames } = room;
  setText(byId('application'), application ? application.name : 'No application');
  byId('application').title = application ? `process ${application.pid}` : '';
  setText(byId('session'), room.answers === false ? 'does not answer' : room.state ? room.state.toLowerCase() : 'none');
  byId('session').className = room.state === 'FOCUSED' && room.answers ? 'good' : '';
  const stands = frames && frames.since_last > 2;
  setText(byId('frames'), !frames ? '–' : stands ? `none for ${Math.floor(frames.since_last)} s` : frames.rate ? `${frames.rate.toFixed(0)} per s` : '–');
  const places = Object.entries(DEVICES).filter(([name]) => room[name]).map(([name, title]) => {
    const { position, heading, pitch } = room[name];
    const looks = name === 'head' ? ` · heading ${turnText(heading, 'left', 'right')}, ${turnText(pitch, 'up', 'down')}` : '';
    return make('div', { class: name }, make('dt', {}, title), make('dd', {}, `${position.map(metres).join(', ')} m${looks}`));
  });
  byId('places').replaceChildren(...(places.length > 0 ? places : [make('div', {}, make('dd', {}, 'Head and hands are not located.'))]));
}

// What changes by itself with time.
function tick() {
  setText(byId('count'), String(state.rows.size === 0 ? 0 : Math.max(...state.rows.keys())));
  setText(byId('last'), state.lastBegun ? ago(state.lastBegun) : '–');
  for (const { entry, call } of state.rows.values()) {
    if (call.result === 'running') setText(entry.took, took(call));
  }
  for (const { title, caption, told } of Object.values(eyes)) {
    if (told) setText(caption, `${title} · ${told.tool} · ${ago(told.taken)}`);
  }
}

function take(news) {
  if (state.run !== news.run) {
    for (const { entry } of state.rows.values()) entry.element.remove();
    state.rows.clear();
    plan.clearTrails();
  }
  state.run = news.run;
  for (const call of news.calls ?? []) showCall(call);
  forgetOldCalls();
  for (const [name, told] of Object.entries(news.eyes ?? {})) showEye(name, told);
  if (news.room) showRoom(news.room);
  plan.addTrails(news.trails ?? {});
  if (news.room) plan.show(news.room);
  showFacts();
  byId('no-calls').hidden = state.rows.size > 0;
  tick();
}

function tellConnection(text, isGood) {
  setText(byId('connection'), text);
  byId('connection').className = isGood ? 'pill good' : 'pill bad';
}

let stream = null;
function connect() {
  if (stream || document.hidden) return;
  stream = new EventSource('/watch/events');
  let isFirst = true;
  stream.onmessage = ({ data }) => {
    tellConnection('live', true);
    // The first event tells all that is kept, trails too.
    if (isFirst) plan.clearTrails();
    isFirst = false;
    take(JSON.parse(data));
  };
  stream.onopen = () => tellConnection('live', true);
  stream.onerror = () => {
    disconnect();
    tellConnection('not connected; trying again', false);
    setTimeout(connect, RETRY_MS);
  };
}

function disconnect() {
  stream?.close();
  stream = null;
}

// A page that nobody sees asks the application for nothing.
document.addEventListener('visibilitychange', () => (document.hidden ? disconnect() : connect()));
setInterval(tick, 500);
showFacts();
connect();
