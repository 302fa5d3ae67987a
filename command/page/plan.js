// The room from above, as SVG: x to the right, z downwards, so that "ahead" (-z) is up. Metres.
const SVG = 'http://www.w3.org/2000/svg';
const DEVICES = { head: 'Head', left: 'Left', right: 'Right' };
const MARGIN = { left: 40, right: 10, top: 10, bottom: 26 };
const LEAST_METRES = 2;

function draw(name, attributes = {}, ...children) {
  const made = document.createElementNS(SVG, name);
  for (const [key, value] of Object.entries(attributes)) made.setAttribute(key, value);
  made.append(...children);
  return made;
}

function areaOf(outline) {
  let twice = 0;
  outline.forEach(([x, z], i) => {
    const [nextX, nextZ] = outline[(i + 1) % outline.length];
    twice += x * nextZ - nextX * z;
  });
  return Math.abs(twice) / 2;
}

function turnText(degrees, positive, negative) {
  if (degrees === 0) return 'straight';
  return `${Math.abs(degrees)}° ${degrees > 0 ? positive : negative}`;
}

const metres = (value) => `${value.toFixed(2).replace(/^-(0\.00)$/, '$1').replace('-', '−')}`;

class Plan {
  constructor(element) {
    this.element = element;
    this.room = {};
    this.trails = { head: [], left: [], right: [] };
    this.svg = draw('svg', { role: 'img' });
    this.layers = Object.fromEntries(['grid', 'things', 'trails', 'devices', 'names'].map((name) => [name, draw('g', { class: name })]));
    this.description = draw('title', {}, 'Nothing is located yet');
    this.svg.append(this.description, ...Object.values(this.layers));
    this.markers = Object.fromEntries(Object.keys(DEVICES).map((name) => [name, this.marker(name)]));
    this.turned = {};
    element.append(this.svg);
    new ResizeObserver(() => this.draw()).observe(element);
  }

  // The head is last, on top of the hands.
  marker(name) {
    const group = draw('g', { class: `device ${name}` });
    if (name === 'head') {
      const view = draw('g', { class: 'turns' }, draw('path', { class: 'view', d: 'M0 0L-42 -42A60 60 0 0 1 42 -42Z' }),
        draw('path', { class: 'nose', d: 'M-5 -8L0 -17L5 -8Z' }));
      group.append(view, draw('circle', { r: 9 }));
      this.layers.devices.append(group);
      return { group, turns: view };
    }
    const aim = draw('path', { class: 'aim turns', d: 'M0 0V-34' });
    group.append(aim, draw('circle', { r: 8 }), draw('text', { dy: '.36em' }, name === 'left' ? 'L' : 'R'));
    this.layers.devices.prepend(group);
    return { group, turns: aim };
  }

  clearTrails() {
    for (const each of Object.values(this.trails)) each.length = 0;
  }

  addTrails(points) {
    for (const [name, more] of Object.entries(points)) {
      const trail = this.trails[name];
      trail.push(...more);
      trail.splice(0, trail.length - 600);
    }
  }

  show(room) {
    this.room = room;
    this.draw();
  }

  // What has to be in sight, in half metres, so that a swaying head moves nothing else.
  bounds() {
    const points = [...(this.room.entities ?? []).flatMap(({ outline }) => outline), ...Object.values(this.trails).flat()];
    for (const name of Object.keys(DEVICES)) {
      if (this.room[name]) points.push([this.room[name].position[0], this.room[name].position[2]]);
    }
    if (points.length === 0) points.push([0, 0]);
    const edge = (axis, which, round) => round(which(...points.map((point) => point[axis])) * 2) / 2;
    const [left, right] = [edge(0, Math.min, (x) => Math.floor(x - 0.3)), edge(0, Math.max, (x) => Math.ceil(x + 0.3))];
    const [top, bottom] = [edge(1, Math.min, (z) => Math.floor(z - 0.3)), edge(1, Math.max, (z) => Math.ceil(z + 0.3))];
    return { x: (left + right) / 2, z: (top + bottom) / 2, width: Math.max(right - left, LEAST_METRES), depth: Math.max(bottom - top, LEAST_METRES) };
  }

  draw() {
    const { clientWidth: width, clientHeight: height } = this.element;
    if (width < 80 || height < 80) return;
    this.svg.setAttribute('viewBox', `0 0 ${width} ${height}`);
    const sight = this.bounds();
    const wide = width - MARGIN.left - MARGIN.right;
    const high = height - MARGIN.top - MARGIN.bottom;
    this.scale = Math.min(wide / sight.width, high / sight.depth);
    this.at = ([x, z]) => [MARGIN.left + wide / 2 + (x - sight.x) * this.scale, MARGIN.top + high / 2 + (z - sight.z) * this.scale];
    this.drawGrid(width, height);
    this.drawThings();
    this.drawTrails();
    for (const name of Object.keys(DEVICES)) this.drawDevice(name);
    this.description.textContent = this.inWords();
  }

  drawGrid(width, height) {
    const { grid } = this.layers;
    grid.replaceChildren();
    const step = [1, 2, 5, 10, 50, 100, 1000].find((each) => each * this.scale > 28) ?? 10000;
    const [zeroX, zeroZ] = this.at([0, 0]);
    const each = (zero, from, to, line) => {
      const size = step * this.scale;
      for (let i = Math.ceil((from - zero) / size); zero + i * size <= to; ++i) line(zero + i * size, i * step);
    };
    const text = (value) => (value === 0 ? '0' : `${String(value).replace('-', '−')} m`);
    each(zeroX, MARGIN.left, width - MARGIN.right, (x, value) => {
      grid.append(draw('path', { class: value === 0 ? 'zero' : 'line', d: `M${x} ${MARGIN.top}V${height - MARGIN.bottom}` }));
      grid.append(draw('text', { x, y: height - 8, 'text-anchor': 'middle' }, text(value)));
    });
    each(zeroZ, MARGIN.top, height - MARGIN.bottom, (y, value) => {
      grid.append(draw('path', { class: value === 0 ? 'zero' : 'line', d: `M${MARGIN.left} ${y}H${width - MARGIN.right}` }));
      grid.append(draw('text', { x: MARGIN.left - 6, y, dy: '.36em', 'text-anchor': 'end' }, text(value)));
    });
  }

  drawThings() {
    this.layers.things.replaceChildren();
    this.layers.names.replaceChildren();
    const things = (this.room.entities ?? []).map((each) => ({ ...each, area: areaOf(each.outline) }));
    things.sort((one, other) => other.area - one.area);
    for (const { name, label, outline, area } of things) {
      const kind = area < 0.01 ? 'wall' : /^(FLOOR|CEILING)$/.test(label) ? 'floor' : 'thing';
      const points = outline.map((point) => this.at(point).join(' ')).join('L');
      this.layers.things.append(draw('path', { class: kind, d: `M${points}Z` }, draw('title', {}, name)));
      if (kind === 'thing') this.drawName(name, outline);
    }
  }

  // In the middle of it, or below what is smaller than its name.
  drawName(name, outline) {
    const points = outline.map((point) => this.at(point));
    const extent = (axis) => [Math.min(...points.map((point) => point[axis])), Math.max(...points.map((point) => point[axis]))];
    const [[left, right], [top, bottom]] = [extent(0), extent(1)];
    const label = draw('text', { x: (left + right) / 2, 'text-anchor': 'middle' }, name);
    this.layers.names.append(label);
    const fits = label.getComputedTextLength() < right - left;
    label.setAttribute('y', fits ? (top + bottom) / 2 + 4 : bottom + 12);
  }

  // In pieces that fade towards the oldest.
  drawTrails() {
    this.layers.trails.replaceChildren();
    for (const [name, trail] of Object.entries(this.trails)) {
      const pieces = 6;
      const size = Math.max(Math.ceil(trail.length / pieces), 2);
      for (let from = 0, piece = 1; from < trail.length - 1; from += size, ++piece) {
        const points = trail.slice(from, from + size + 1).map((point) => this.at(point).join(' '));
        const age = Math.ceil((trail.length - from) / size);
        this.layers.trails.append(draw('path', { class: name, d: `M${points.join('L')}`, opacity: Math.max(1 - (age - 1) * 0.15, 0.2) }));
      }
    }
  }

  drawDevice(name) {
    const { group, turns } = this.markers[name];
    const device = this.room[name];
    group.style.display = device ? '' : 'none';
    if (!device) return;
    const [x, y] = this.at([device.position[0], device.position[2]]);
    group.style.transform = `translate(${x}px, ${y}px)`;
    const heading = (name === 'head' ? device : this.room[`${name}_aim`] ?? device).heading;
    // The shorter way round, also over the back.
    const before = this.turned[name] ?? 0;
    this.turned[name] = before + ((-heading - before) % 360 + 540) % 360 - 180;
    turns.style.transform = `rotate(${this.turned[name]}deg)`;
  }

  inWords() {
    const words = [];
    for (const [name, title] of Object.entries(DEVICES)) {
      const device = this.room[name];
      if (!device) continue;
      const [x, , z] = device.position;
      words.push(`${title} at x ${metres(x)} m, z ${metres(z)} m, heading ${turnText(device.heading, 'left', 'right')}`);
    }
    const things = (this.room.entities ?? []).map(({ name }) => name);
    if (things.length > 0) words.push(`Things: ${things.join(', ')}`);
    return words.length > 0 ? words.join('. ') : 'Nothing is located yet';
  }
}
