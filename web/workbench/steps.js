// The steps of the recipe: a card each, with a form made from the table of operations.
import { byId, fill, h, openDialog, plain, say } from './dom.js';
import { placeOf } from './runnable.js';
import { change, emit, endOfChange, freeName, on, outputOf, state } from './store.js';
import { drawInto, regionTools } from './regions.js';
import { teachInto } from './teach.js';

let table = null;
const operationOf = (step) => table.operations.find(({ name }) => name === step.operation);
export const kindOf = (name) => {
  if (name === 'image') return 'picture';
  if (name === 'color') return 'colour picture';
  const step = state.recipe.steps.find((other) => outputOf(other) === name);
  return step ? operationOf(step)?.output : undefined;
};

// ---- changes -------------------------------------------------------------------------------------

function stepChange(index, work, key) {
  change(({ steps }, files) => work(steps[index], files), key);
}
function setValue(index, name, value, isLive) {
  stepChange(index, (step) => {
    if (value === undefined) delete step[name];
    else step[name] = value;
  }, isLive ? `${index} ${name}` : null);
}

// Gives another input to all that have this one, and lets what followed it follow the other.
function redirect({ steps, measurements }, before, after) {
  const moved = (name) => (Array.isArray(name) ? name.map(moved) : name === before ? after : name);
  for (const entry of [...steps, ...measurements]) {
    for (const key of ['input', 'follow']) if (entry[key] !== undefined) entry[key] = moved(entry[key]);
  }
}

// Renames a step, and what refers to it.
function rename(index, name) {
  change((recipe) => {
    const step = recipe.steps[index];
    const before = outputOf(step);
    if (state.selected === step.name) state.selected = name;
    if (state.slot === step.name) state.slot = name;
    step.name = name;
    redirect(recipe, before, outputOf(step));
  });
}

function move(from, to) {
  if (to < 0 || to >= state.recipe.steps.length || to === from) return;
  change(({ steps }) => steps.splice(to, 0, ...steps.splice(from, 1)));
}

function remove(index) {
  change(({ steps }) => steps.splice(index, 1));
  say('Step removed. Undo brings it back.');
}

// The last output before a place that an operation can work on.
function inputFor(kind, before) {
  for (let i = before - 1; i >= 0; --i) {
    const step = state.recipe.steps[i];
    if (operationOf(step)?.output === kind) return outputOf(step);
  }
  return kind === 'colour picture' ? 'color' : 'image';
}

// A first value for what has no default, so that the step does something at once.
function firstValue(argument) {
  const middle = Math.round(Math.min(Math.max(0, argument.min), argument.max));
  switch (argument.type) {
    case 'choice': return argument.choices[0];
    case 'odd': return Math.max(3, argument.min | 1);
    case 'whole': return argument.max === 255 ? 128 : Math.max(middle, Math.min(argument.max, 1));
    case 'number': return Math.min(Math.max(1, argument.min), argument.max);
    case 'range': case 'whole-range': return argument.max === 255 ? [64, 192] : [argument.min, argument.max];
    case 'wholes': return Array(argument.count).fill(1);
    case 'flag': return false;
    default: return undefined;
  }
}

export function addStep(operation, values = {}) {
  const at = state.recipe.steps.length;
  const taken = ['image', 'color', ...state.recipe.steps.flatMap((step) => [step.name, outputOf(step)])];
  const name = freeName(operation.name, taken);
  // What is taught is a part of the image, and is looked for in the image.
  const isTaught = operation.arguments.some(({ holds }) => holds && holds !== 'parameters');
  const inputs = operation.inputs.map((kind) => inputFor(kind, isTaught ? 0 : at));
  const step = { name, operation: operation.name, input: inputs.length > 1 ? inputs : inputs[0] };
  for (const argument of operation.arguments) {
    if (argument.required && argument.name in values === false) {
      const value = firstValue(argument);
      if (value !== undefined) step[argument.name] = value;
    }
  }
  change((recipe) => {
    recipe.steps.push({ ...step, ...values });
    // What finds things is counted at once.
    if (!operation.output.includes('picture') && !recipe.measurements.some(({ input }) => input === name)) {
      recipe.measurements.push({ name: freeName(name, recipe.measurements.map((other) => other.name)), input: name, value: 'count' });
    }
  });
  select(name);
  return name;
}

// Puts the plane of a calibrated camera before all steps: those that worked on the image work on that.
export function useCamera(bytes) {
  const operation = table.operations.find(({ knowsScale }) => knowsScale);
  const { name: argument } = operation.arguments.find(({ type }) => type === 'file');
  change((recipe, files) => {
    const file = freeName('camera.json', [...files.keys()]);
    files.set(file, bytes);
    const before = recipe.steps.find((step) => step.operation === operation.name);
    if (before) {
      before[argument] = file;
      return;
    }
    const [image] = operation.inputs.map((kind) => inputFor(kind, 0));
    const name = freeName(operation.name, [image, ...recipe.steps.flatMap((step) => [step.name, outputOf(step)])]);
    redirect(recipe, image, name);
    recipe.steps.unshift({ name, operation: operation.name, input: image, [argument]: file });
    state.selected = state.slot = name;
  });
}

// Shows what a step works on, for regions are places of that.
function showInputOf(index) {
  const [input] = [state.recipe.steps[index].input].flat();
  state.slot = state.recipe.steps.find((step) => outputOf(step) === input)?.name ?? null;
  emit('selected');
}

export function select(name) {
  state.selected = name;
  state.slot = name;
  emit('selected');
}

// ---- controls ------------------------------------------------------------------------------------

const kSliderSpan = 1000;  // a range beyond which a slider is too coarse

function numberControl(index, argument, value, set, key) {
  const isWhole = argument.type !== 'number' && argument.type !== 'range';
  const step = isWhole ? (argument.type === 'odd' ? 2 : 1) : 'any';
  const shared = { min: argument.min, max: argument.max, step };
  const box = h('input', { ...shared, type: 'number', value: value ?? '', 'data-key': `${key} number`, 'aria-label': argument.name });
  const control = h('span.number', box);
  const read = (from) => (from.value === '' ? undefined : Number(from.value));
  box.oninput = () => set(read(box), true);
  box.onchange = endOfChange;
  if (argument.max - argument.min <= kSliderSpan) {
    const slider = h('input', {
      ...shared, step: isWhole ? step : (argument.max - argument.min) / 200, type: 'range', value: value ?? argument.min,
      'data-key': `${key} slider`, 'aria-label': `${argument.name}, slider`, tabIndex: -1,
    });
    slider.oninput = () => {
      box.value = plain(slider.value, 4);
      set(Number(box.value), true);
    };
    slider.onchange = endOfChange;
    box.addEventListener('input', () => (slider.value = box.value));
    control.prepend(slider);
  }
  return control;
}

function pairControl(index, argument, value, set, key) {
  const [low, high] = value ?? [undefined, undefined];
  const at = (place) => (next, isLive) => {
    const pair = [...(state.recipe.steps[index][argument.name] ?? [low ?? argument.min, high ?? argument.max])];
    pair[place] = next;
    set(pair, isLive);
  };
  return h('span.pair',
    numberControl(index, argument, low, at(0), `${key} low`), h('span', 'to'),
    numberControl(index, argument, high, at(1), `${key} high`));
}

function listControl(argument, value, set, key) {
  const size = Math.sqrt(value?.length ?? argument.count ?? 0);
  const isSquare = Number.isInteger(size) && size > 1;
  const text = (value ?? []).map((number, i) => number + (isSquare && (i + 1) % size === 0 ? '\n' : ' ')).join('').trim();
  const box = h('textarea', { value: text, rows: isSquare ? size : 2, 'data-key': key, 'aria-label': argument.name, spellcheck: false });
  box.onchange = () => set(box.value.trim().split(/[\s,;]+/).map(Number), false);
  return box;
}

function fileControl(index, argument, value, set, key) {
  const names = [...state.files.keys()];
  const choose = h('select', { 'data-key': key, 'aria-label': argument.name },
    h('option', { value: '' }, value ? 'none' : 'none yet'),
    [...new Set([...names, ...(value ? [value] : [])])].map((name) => h('option', { value: name, selected: name === value }, name)));
  choose.onchange = () => set(choose.value || undefined, false);
  return h('span.file', choose,
    argument.holds === 'parameters' ? null : h('button', { onclick: () => teachInto(index, argument) }, 'Teach from the picture…'),
    openButton('Open file…', false, ([name]) => set(name, false)));
}

function openButton(label, multiple, chosen) {
  const input = h('input', { type: 'file', multiple, hidden: true });
  input.onchange = async () => {
    const opened = await Promise.all([...input.files].map(async (file) => [file.name, new Uint8Array(await file.arrayBuffer())]));
    if (!opened.length) return;
    for (const [name, bytes] of opened) state.files.set(name, bytes);
    chosen(opened.map(([name]) => name));
  };
  return [h('button', { onclick: () => input.click() }, label), input];
}

function filesControl(index, argument, value, set) {
  const names = value ?? [];
  const add = async (images) => {
    const added = [];
    for (const image of images) {
      state.files.set(image.name, new Uint8Array(await image.blob.arrayBuffer()));
      added.push(image.name);
    }
    if (added.length) set([...new Set([...names, ...added])], false);
  };
  const current = state.images.find(({ id }) => id === state.current);
  const marked = state.images.filter(({ mark }) => mark === 'good');
  return h('span.files',
    h('ul', names.map((name) => h('li', name, h('button.icon', {
      title: `Remove ${name}`, 'aria-label': `Remove ${name}`,
      onclick: () => set(names.length > 1 ? names.filter((other) => other !== name) : undefined, false),
    }, '✕')))),
    h('button', { onclick: () => add(current ? [current] : []), disabled: !current }, 'Add this image'),
    marked.length ? h('button', { onclick: () => add(marked) }, `Add ${marked.length} marked good`) : null,
    openButton('Open files…', true, (opened) => set([...new Set([...names, ...opened])], false)));
}

// For what has no form of its own.
function jsonControl(argument, value, set, key) {
  const box = h('input', { value: value === undefined ? '' : JSON.stringify(value), placeholder: 'not drawn', title: argument.expected, 'aria-label': argument.name, 'data-key': key });
  box.onchange = () => {
    try {
      set(box.value ? JSON.parse(box.value) : undefined, false);
    } catch {
      set(box.value, false);
    }
  };
  return box;
}

function controlOf(index, argument, value) {
  const key = `${index} ${argument.name}`;
  const set = (next, isLive) => setValue(index, argument.name, next, isLive);
  switch (argument.type) {
    case 'whole': case 'odd': case 'number':
      return numberControl(index, argument, value, set, key);
    case 'range': case 'whole-range':
      return pairControl(index, argument, value, set, key);
    case 'flag': {
      const box = h('input', { type: 'checkbox', checked: Boolean(value), 'data-key': key });
      box.onchange = () => set(box.checked, false);
      return box;
    }
    case 'choice': {
      const box = h('select', { 'data-key': key }, argument.choices.map((choice) => h('option', { selected: choice === value }, choice)));
      box.onchange = () => set(box.value, false);
      return box;
    }
    case 'file': return fileControl(index, argument, value, set, key);
    case 'files': return filesControl(index, argument, value, set);
    case 'wholes': return listControl(argument, value, set, key);
    case 'box': case 'ring': case 'rectangle': case 'points':
      return h('span.region', jsonControl(argument, value, set, key), regionTools(argument, () => showInputOf(index), (drawn) => set(drawn, false)));
    default: return jsonControl(argument, value, set, key);
  }
}

// ---- cards ---------------------------------------------------------------------------------------

function fieldError(index, field) {
  return h('p.wrong', { 'data-error': `${index} ${field}` });
}

function argumentRow(index, step, argument) {
  const given = step[argument.name];
  const value = given === undefined ? argument.default : given;
  const isFlag = argument.type === 'flag';
  const isOptional = !argument.required && argument.default === undefined && !isFlag;
  const isSet = given !== undefined;
  const name = h('span.name', argument.name.replaceAll('_', ' '), argument.unit ? h('small', ` ${argument.unit}`) : null);
  const row = h('div.argument', { title: `${argument.summary} (${argument.expected})` });
  if (isOptional && argument.type !== 'rectangle' && argument.type !== 'points') {
    const box = h('input', { type: 'checkbox', checked: isSet, 'data-key': `${index} ${argument.name} is set`, 'aria-label': `give ${argument.name}` });
    box.onchange = () => setValue(index, argument.name, box.checked ? firstValue(argument) : undefined);
    row.append(h('label', box, name), isSet ? controlOf(index, argument, value) : '');
  } else if (isFlag) {
    row.append(h('label', controlOf(index, argument, value), name));
  } else {
    const back = isSet && argument.default !== undefined && JSON.stringify(given) !== JSON.stringify(argument.default);
    row.append(h('span.head', name, back ? h('button.icon', {
      title: `Back to ${JSON.stringify(argument.default)}`, 'aria-label': `Default of ${argument.name}`,
      onclick: () => setValue(index, argument.name, undefined),
    }, '↺') : null), controlOf(index, argument, value));
    if (isOptional && isSet) row.append(h('button', { onclick: () => setValue(index, argument.name, undefined) }, 'Take away'));
  }
  row.append(h('small.what', argument.summary), fieldError(index, argument.name));
  return row;
}

function inputRow(index, step, operation) {
  const inputs = [step.input].flat();
  return h('div.argument', h('span.name', operation.inputs.length > 1 ? 'inputs' : 'input'),
    h('span.pair', operation.inputs.map((kind, place) => {
      const names = [kind === 'colour picture' ? 'color' : 'image',
        ...state.recipe.steps.slice(0, index).filter((other) => operationOf(other)?.output === kind).map(outputOf)];
      const known = [...new Set([...names, inputs[place]])].filter(Boolean);
      const box = h('select', { 'data-key': `${index} input ${place}`, 'aria-label': `input ${place + 1}` },
        known.map((name) => h('option', { selected: name === inputs[place] }, name)));
      box.onchange = () => stepChange(index, (changed) => {
        const next = [...inputs];
        next[place] = box.value;
        changed.input = operation.inputs.length > 1 ? next : next[0];
      });
      return box;
    })), fieldError(index, 'input'));
}

function formOf(index, step) {
  const operation = operationOf(step);
  if (!operation) return h('div.form', fieldError(index, 'operation'));
  const names = operation.arguments.map(({ name }) => name);
  const isBox = ['left', 'top', 'width', 'height'].every((name) => names.includes(name));
  return h('div.form',
    h('p.what', operation.summary),
    inputRow(index, step, operation),
    isBox ? h('button', { onclick: () => (showInputOf(index), drawInto('box', ([left, top, width, height]) => stepChange(index, (changed) => Object.assign(changed, { left, top, width, height })))) }, 'Draw the box on the picture') : null,
    operation.arguments.map((argument) => argumentRow(index, step, argument)));
}

let dragged = null;

function cardOf(step, index) {
  const isOpen = state.selected === step.name;
  const last = state.recipe.steps.length - 1;
  const name = h('input.title', { value: step.name, 'data-key': `${index} name`, 'aria-label': 'name of the step', spellcheck: false });
  name.onchange = () => rename(index, name.value);
  const card = h('li.card', { 'data-step': step.name },
    h('header', { draggable: true },
      h('span.grip', { title: 'Drag to reorder, or Alt with the arrow keys', 'aria-hidden': 'true' }, '⠿'),
      h('button.open', {
        'aria-expanded': String(isOpen), 'data-key': `${index} open`, title: isOpen ? 'Close the form' : 'Open the form and show this step',
        onclick: () => (isOpen ? (state.selected = null, emit('selected')) : select(step.name)),
      }, h('span.index', String(index + 1)), h('span.operation', step.operation)),
      name,
      h('output.time', { 'data-time': step.name }),
      h('button.icon', { title: 'Up', 'aria-label': `Move ${step.name} up`, disabled: index === 0, onclick: () => move(index, index - 1) }, '↑'),
      h('button.icon', { title: 'Down', 'aria-label': `Move ${step.name} down`, disabled: index === last, onclick: () => move(index, index + 1) }, '↓'),
      h('button.icon', { title: 'Remove', 'aria-label': `Remove ${step.name}`, onclick: () => remove(index) }, '✕')),
    fieldError(index, 'name'), fieldError(index, 'output'), fieldError(index, null),
    isOpen ? formOf(index, step) : null);
  card.classList.toggle('open', isOpen);
  card.onkeydown = (event) => {
    if (!event.altKey || !['ArrowUp', 'ArrowDown'].includes(event.key)) return;
    event.preventDefault();
    move(index, index + (event.key === 'ArrowUp' ? -1 : 1));
  };
  card.ondragstart = (event) => {
    dragged = index;
    event.dataTransfer.effectAllowed = 'move';
  };
  card.ondragover = (event) => {
    if (dragged === null) return;
    event.preventDefault();
    card.classList.add('over');
  };
  card.ondragleave = () => card.classList.remove('over');
  card.ondrop = (event) => {
    card.classList.remove('over');
    if (dragged === null) return;
    event.preventDefault();
    move(dragged, index);
    dragged = null;
  };
  card.ondragend = () => (dragged = null);
  return card;
}

// What stays while values change: forms are made anew only when this differs, so that a slider is
// not taken from under the pointer.
let drawnShape = null;
const shape = () => JSON.stringify([state.selected, [...state.files.keys()], state.images.filter(({ mark }) => mark === 'good').length,
  state.recipe.steps.map((step) => [step.name, step.operation, step.input, Object.keys(step).sort()])]);

function render() {
  drawnShape = shape();
  fill(byId('steps'), state.recipe.steps.map(cardOf));
  refresh();
}

// Errors and times, which come after each run.
export function refresh() {
  const errors = new Map();
  for (const problem of state.problems) {
    const { list, index, field, text } = placeOf(problem, state.recipe);
    if (list === 'step') errors.set(`${index} ${field}`, text);
  }
  for (const place of byId('steps').querySelectorAll('[data-error]')) {
    const text = errors.get(place.dataset.error);
    place.textContent = text ?? '';
    if (text) errors.delete(place.dataset.error);
  }
  // A field that is not shown: its step's card says it.
  for (const [key, text] of errors) {
    const index = key.slice(0, key.indexOf(' '));
    const place = byId('steps').querySelector(`[data-error="${index} null"]`);
    if (place) place.textContent = `${key.slice(index.length + 1)}: ${text}`;
  }
  const steps = state.look?.inspection?.steps ?? [];
  for (const place of byId('steps').querySelectorAll('[data-time]')) {
    const step = steps.find(({ name }) => name === place.dataset.time);
    const count = step?.things ? `${step.things.length} found · ` : '';
    place.textContent = step ? `${count}${plain(step.milliseconds, step.milliseconds < 10 ? 1 : 0)} ms` : '';
    place.title = (step?.details ?? []).map(({ heading, value }) => `${heading}: ${plain(value)}`).join('\n');
  }
}

// ---- choosing an operation -----------------------------------------------------------------------

export function chooseOperation() {
  const search = h('input', { type: 'search', placeholder: 'a name, or what it does', 'aria-label': 'Search operations' });
  const list = h('div.operations');
  const { close } = openDialog('Add a step', search, list);
  const draw = () => {
    const words = search.value.toLowerCase().split(/\s+/).filter(Boolean);
    const found = table.operations.filter(({ name, family, summary }) =>
      words.every((word) => `${name} ${family} ${summary}`.toLowerCase().includes(word)));
    // What is called so comes before what only mentions it: Enter takes the first.
    const [first = ''] = words;
    const rank = ({ name }) => [name === first, name.startsWith(first), name.includes(first), true].indexOf(true);
    if (first) found.sort((one, other) => rank(one) - rank(other));
    const families = [...new Set(found.map(({ family }) => family))];
    list.replaceChildren(...families.map((family) => h('section', h('h3', family), found.filter((row) => row.family === family).map((row) =>
      h('button', { onclick: () => (close(), addStep(row)) }, h('b', row.name), h('span', row.summary), h('small', `${row.inputs.join(' + ')} → ${row.output}`))))));
    if (!found.length) list.replaceChildren(h('p.quiet', 'No operation has these words.'));
  };
  search.oninput = draw;
  search.onkeydown = (event) => {
    if (event.key !== 'Enter') return;
    event.preventDefault();  // the key would go on to what has the focus when the dialog is closed
    list.querySelector('button')?.click();
  };
  draw();
  search.focus();
}

export function setUpSteps(known) {
  table = known;
  byId('add-step').onclick = chooseOperation;
  on('recipe', (key) => {
    if (key === null || shape() !== drawnShape) render();
  });
  on('selected', render);
  on('looked', refresh);
  on('marks', () => shape() !== drawnShape && render());
  render();
}
