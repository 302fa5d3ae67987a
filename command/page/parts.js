// What the pages share. Texts come from applications and agents: they become text nodes, never markup.
'use strict';

const MARKS = {
  passed: ['✓', 'passed'], failed: ['✗', 'failed'], setup: ['!', 'set-up failed'],
  running: ['…', 'running'], cancelled: ['–', 'cancelled'],
};

function make(name, attributes = {}, ...children) {
  const made = document.createElement(name);
  for (const [key, value] of Object.entries(attributes)) made.setAttribute(key, value);
  made.append(...children.filter((child) => child !== null && child !== undefined));
  return made;
}

function duration(seconds) {
  if (seconds < 0.9995) return `${Math.round(seconds * 1000)} ms`;
  return seconds < 100 ? `${seconds.toFixed(2)} s` : `${Math.round(seconds)} s`;
}

function mark(result) {
  const [sign, word] = MARKS[result];
  return make('span', { class: `mark ${result}` }, make('span', { 'aria-hidden': 'true' }, sign),
    make('span', { class: 'unseen' }, word));
}

// A picture with its caption. `source` is a URL.
function figure(source, caption) {
  return make('figure', {}, make('img', { src: source, alt: caption }), make('figcaption', {}, caption));
}

// A block of text under its title.
function block(title, text) {
  return make('div', { class: 'block' }, make('h4', {}, title), make('pre', {}, text));
}

// Short JSON stays on one line, and other texts are as they are.
function pretty(text) {
  try {
    const whole = JSON.stringify(JSON.parse(text));
    return whole.length < 72 ? whole : JSON.stringify(JSON.parse(text), null, 2).replace(/\[[^[\]{}"]{0,160}\]/g,
      (list) => list.replace(/\s+/g, ' ').replace('[ ', '[').replace(' ]', ']'));
  } catch {
    return text;
  }
}

// A long name may end a line behind each of its parts.
function breakable(name) {
  return name.split(/(?<=_)/).flatMap((part) => [part, make('wbr')]);
}

// One row of a list, which opens to what `fill` gives. Until it is opened, nothing of that is made.
class Entry {
  constructor(fill) {
    this.fill = fill;
    this.summary = make('summary');
    this.details = make('details', { class: 'entry' }, this.summary);
    this.details.addEventListener('toggle', () => this.refill());
    this.element = make('li', {}, this.details);
  }

  // `title` and `note` are texts; `time` and `took` may lack.
  show({ result, title, note, time, took }) {
    const column = (name, ...content) => make('span', { class: name }, ...content);
    this.took = column('took', took);
    this.details.className = `entry ${result}`;
    this.summary.replaceChildren(mark(result), column('title', ...breakable(title)), column('note', note), column('time', time), this.took);
    this.refill();
  }

  refill() {
    if (!this.details.open) return;
    this.body?.remove();
    this.body = make('div', { class: 'body' }, ...this.fill());
    this.details.append(this.body);
  }
}
