// What is measured, and the limits that decide: typed, dragged over the values of all images, or
// proposed from images that are marked good and bad.
import { valueHistogram } from './charts.js';
import { byId, fill, h, say } from './dom.js';
import { proposeLimits, wrongVerdicts } from './limits.js';
import { placeOf } from './runnable.js';
import { kindOf } from './steps.js';
import { change, endOfChange, freeName, on, outputOf, state } from './store.js';

let table = null;
const kLimits = ['min', 'max'];

const valuesOf = (name) => state.images.flatMap(({ result, mark }) => {
  const value = result?.measurements?.find((other) => other.name === name)?.value;
  return value === null || value === undefined ? [] : [{ value, mark }];
});

function set(index, field, value, isLive = false) {
  change(({ measurements }) => {
    if (value === undefined || value === '') delete measurements[index][field];
    else measurements[index][field] = value;
  }, isLive ? `measurement ${index} ${field}` : null);
}

function setInput(index, input) {
  change(({ measurements }) => {
    const measurement = measurements[index];
    measurement.input = input;
    const kind = kindOf(input);
    if (!quantitiesOf(kind).some(({ name }) => name === measurement.value)) measurement.value = quantitiesOf(kind)[0]?.name;
    if (!canChoose(measurement)) delete measurement.which;
  });
}

const quantitiesOf = (kind) => table.quantities.filter(({ inputs }) => inputs.includes(kind));
const isFormula = ({ input }) => input === undefined;
const isBetween = ({ input }) => Array.isArray(input);
const canChoose = ({ value, input }) => typeof input === 'string' && value !== 'count' && kindOf(input) !== 'picture';
// What the value is counted in, by pixels and by millimetres; nothing where it has no such unit.
function unitsOf(measurement) {
  if (isFormula(measurement)) return [];
  const { unit } = [...table.betweens, ...table.quantities].find(({ name }) => name === measurement.value) ?? {};
  return unit?.startsWith('px') ? [unit, unit.replace('px', 'mm')] : [];
}

// The ways to measure, and a first value for each.
const kWays = {
  'one step': () => ({ input: measurable().at(-1) }),
  'two steps': () => ({ input: [findings().at(-2) ?? findings().at(-1), findings().at(-1)], value: table.betweens[0].name }),
  formula: (before) => ({ value: before.length ? `'${before.at(-1).name}' * 1` : '1 + 1' }),
};
const wayOf = (measurement) => Object.keys(kWays)[isFormula(measurement) ? 2 : isBetween(measurement) ? 1 : 0];
const measurable = () => state.recipe.steps.map(outputOf).filter((name) => quantitiesOf(kindOf(name)).length);
// The steps that find things.
const findings = () => measurable().filter((name) => !kindOf(name).includes('picture'));

function setWay(index, way) {
  change(({ measurements }) => {
    const { name } = measurements[index];
    const next = { name, ...kWays[way](measurements.slice(0, index)) };
    if (typeof next.input === 'string') next.value = quantitiesOf(kindOf(next.input))[0].name;
    measurements[index] = next;
  });
}

function choice(index, field, options, value, changed = (next) => set(index, field, next)) {
  const box = h('select', { 'data-key': `measurement ${index} ${field}`, 'aria-label': field },
    options.map(({ name, summary }) => h('option', { value: name, selected: name === value, title: summary }, name)));
  box.onchange = () => changed(box.value);
  return box;
}

function limitBox(index, field, value) {
  const box = h('input', { type: 'number', step: 'any', value: value ?? '', placeholder: 'none', 'data-key': `measurement ${index} ${field}`, 'aria-label': field });
  box.oninput = () => set(index, field, box.value === '' ? undefined : Number(box.value), true);
  box.onchange = endOfChange;
  return h('label', field === 'min' ? 'at least' : 'at most', box);
}

// What is measured, as a sentence of choices.
function sentenceOf(measurement, index) {
  const named = (names, value) => [...new Set([...names, value ?? ''])].map((name) => ({ name }));
  const way = choice(index, 'way', Object.keys(kWays).map((name) => ({ name })), wayOf(measurement), (next) => setWay(index, next));
  if (isFormula(measurement)) {
    const box = h('input.formula', { value: measurement.value ?? '', 'data-key': `measurement ${index} value`, 'aria-label': 'formula', spellcheck: false,
      title: 'Measurements before this one by their names, in quotes where they have spaces; + - * / and functions such as sqrt and atan2' });
    box.onchange = () => set(index, 'value', box.value);
    return [way, box];
  }
  if (isBetween(measurement)) {
    const input = (place) => choice(index, `input ${place}`, named(findings(), measurement.input[place]), measurement.input[place], (name) => change(({ measurements }) => {
      measurements[index].input = measurements[index].input.map((other, i) => (i === place ? name : other));
    }));
    return [way, choice(index, 'value', table.betweens, measurement.value), ' of ', input(0), ' and ', input(1)];
  }
  return [way,
    canChoose(measurement) ? choice(index, 'which', table.whiches, measurement.which ?? 'first') : null,
    choice(index, 'value', quantitiesOf(kindOf(measurement.input)), measurement.value, (value) => change(({ measurements }) => {
      measurements[index].value = value;
      if (!canChoose(measurements[index])) delete measurements[index].which;
      if (!unitsOf(measurements[index]).includes(measurements[index].unit)) delete measurements[index].unit;
    })), ' of ', choice(index, 'input', named(measurable(), measurement.input), measurement.input, (input) => setInput(index, input))];
}

function propose(index) {
  const measurement = state.recipe.measurements[index];
  const entries = valuesOf(measurement.name);
  const of = (mark) => entries.filter((entry) => entry.mark === mark).map(({ value }) => value);
  const proposal = proposeLimits(of('good'), of('bad'));
  if (!proposal) return say('Mark images as good first (G in the filmstrip), and bad ones (B).', true);
  change(({ measurements }) => {
    for (const limit of kLimits) {
      if (proposal[limit] === undefined) delete measurements[index][limit];
      else measurements[index][limit] = proposal[limit];
    }
  });
  say(proposal.text);
}

function cardOf(measurement, index) {
  const units = unitsOf(measurement);
  const name = h('input.title', { value: measurement.name, 'data-key': `measurement ${index} name`, 'aria-label': 'name of the measurement', spellcheck: false });
  name.onchange = () => set(index, 'name', name.value);
  return h('li.card',
    h('header', name, h('output.value', { 'data-measured': measurement.name }),
      h('button.icon', { title: 'Remove', 'aria-label': `Remove ${measurement.name}`, onclick: () => change(({ measurements }) => measurements.splice(index, 1)) }, '✕')),
    h('div.form',
      h('p.sentence', sentenceOf(measurement, index)),
      h('p.limits', limitBox(index, 'min', measurement.min), limitBox(index, 'max', measurement.max),
        units.length ? choice(index, 'unit', units.map((name) => ({ name })), measurement.unit ?? units[0]) : null,
        h('button', { onclick: () => propose(index), title: 'From the images that are marked good and bad' }, 'Propose limits')),
      h('div', { 'data-values': index }),
      h('p.quiet', { 'data-wrong': index }),
      h('p.wrong', { 'data-error': index })));
}

let drawnShape = null;
const shape = () => JSON.stringify([state.recipe.measurements.map(({ name, input, value, which, unit, min, max }) => [name, input, value, which, unit, min === undefined, max === undefined]),
  state.recipe.steps.map((step) => [outputOf(step), step.operation])]);

function render() {
  drawnShape = shape();
  fill(byId('measurements'), state.recipe.measurements.map(cardOf));
  refresh();
}

// A limit that is dragged stops at the other one.
function beside(limit, value, { min = -Infinity, max = Infinity }) {
  return limit === 'min' ? Math.min(value, max) : Math.max(value, min);
}

function drawValues(place, index) {
  const measurement = state.recipe.measurements[index];
  const entries = valuesOf(measurement.name);
  if (!entries.length) return place.replaceChildren();
  place.replaceChildren(valueHistogram(entries, measurement,
    (limit, value) => set(index, limit, beside(limit, value, state.recipe.measurements[index]), true),
    () => { endOfChange(); render(); }));
  for (const limit of place.querySelectorAll('[data-key]')) limit.dataset.key = `${index} ${limit.dataset.key}`;
}

// Values, errors and counts; a chart is left alone while one of its limits is dragged.
function refresh(keepsCharts = false) {
  const measured = state.look?.inspection?.measurements ?? [];
  const wrong = state.problems.map((problem) => placeOf(problem, state.recipe));
  const root = byId('measurements');
  for (const place of root.querySelectorAll('[data-measured]')) {
    const found = measured.find(({ name }) => name === place.dataset.measured);
    place.textContent = found ? found.shown : '';
    place.className = found ? (found.passes ? 'value pass' : 'value fail') : 'value';
  }
  for (const place of root.querySelectorAll('[data-error]')) {
    place.textContent = wrong.filter(({ list, index }) => list === 'measurement' && index === Number(place.dataset.error))
      .map(({ field, text }) => `${field}: ${text}`).join('; ');
  }
  for (const place of root.querySelectorAll('[data-wrong]')) {
    const { measurements } = state.recipe;
    place.textContent = wrongVerdicts(valuesOf(measurements[place.dataset.wrong].name), measurements[place.dataset.wrong]);
  }
  if (keepsCharts) return;
  for (const place of root.querySelectorAll('[data-values]')) {
    if (!place.contains(document.activeElement)) drawValues(place, Number(place.dataset.values));
  }
}

function add() {
  const input = measurable().at(-1);
  if (!input) return say('Add a step first: a measurement is of what a step makes.', true);
  const value = quantitiesOf(kindOf(input))[0].name;
  change(({ measurements }) => measurements.push({ name: freeName(`${input} ${value}`, measurements.map(({ name }) => name)), input, value }));
}

export function setUpMeasurements(known) {
  table = known;
  byId('add-measurement').onclick = add;
  on('recipe', (key) => (key === null || shape() !== drawnShape ? render() : refresh(true)));
  on('looked', () => refresh(true));
  on('inspected', () => refresh());
  on('marks', () => refresh());
  render();
}
