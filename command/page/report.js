// The report of `velmoor test`, out of the data that its page holds.
const picture = (base64, caption) => (base64 ? figure(`data:image/png;base64,${base64}`, caption) : null);

function step({ result, title, message, seconds, pictures }) {
  const entry = new Entry(() => [
    message ? make('p', {}, message) : null,
    make('div', { class: 'pictures' }, ...['expected', 'actual', 'difference'].map((each) => picture(pictures[each], each))),
  ]);
  entry.details.open = result !== 'passed';
  entry.show({ result, title, note: message, took: duration(seconds) });
  return entry.element;
}

function test({ result, name, seconds, count, message, steps, last, output }) {
  const parts = () => (steps ? [
    make('p', { class: 'message' }, message),
    make('ol', { class: 'entries' }, ...steps.map(step)),
    make('div', { class: 'pictures' }, picture(last, 'last picture')),
    make('details', { class: 'output' }, make('summary', {}, 'What the application and the layer printed'),
      make('pre', {}, output)),
  ] : [make('p', {}, `${count} steps, all of which passed.`)]);
  const entry = new Entry(parts);
  entry.details.open = result !== 'passed';
  entry.show({ result, title: name, note: message, time: `${count} steps`, took: duration(seconds) });
  return entry.element;
}

const { tests } = JSON.parse(document.getElementById('data').textContent);
// Those that have not passed come first.
const inOrder = [...tests.filter((each) => each.result !== 'passed'), ...tests.filter((each) => each.result === 'passed')];
document.getElementById('tests').replaceChildren(make('ol', { class: 'entries' }, ...inOrder.map(test)));
