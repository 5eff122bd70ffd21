// The sample: trays of parts with a task that is solved step by step, and a tour of the page. The
// task leads to the recipe of the guide, which begins with a threshold and finds what is above it.
import solution from 'guide-recipe';
import { byId, h, say } from './dom.js';
import { kStopped } from './engine.js';
import { addImages, removeImages } from './filmstrip.js';
import { emit, on, replaceRecipe, state } from './store.js';

let table = null;  // of operations

const kTrays = 6;
const [kBright, kParts] = solution.steps;
const kTooLow = 30;  // the tray's own texture is above it
const kRecipe = { name: solution.name, steps: [{ ...kBright, above: kTooLow }], measurements: [] };
const kNear = 26;  // grey values from the guide's threshold at which trays still part from what lies on them

// Whether the recipe counts what is on each tray.
function counted() {
  const known = state.images.filter(({ truth, result }) => truth && result);
  const right = known.filter(({ truth, result }) => result.measurements.some(({ value }) => value === truth.length));
  return { right: right.length, all: state.images.filter(({ truth }) => truth).length };
}

// Whether a threshold parts the parts from the tray: near the guide's, or one that the picture chooses.
function hasThreshold() {
  const familyOf = (step) => table.operations.find(({ name }) => name === step.operation)?.family;
  return state.recipe.steps.some((step) =>
    familyOf(step) === familyOf(kBright) && !(Math.abs(step.above - kBright.above) > kNear));
}

const kTasks = [
  { text: 'Drag “above” until the parts are white and the tray is black.', isDone: () => counted().right > 0 || hasThreshold() },
  { text: `Add the step “${kParts.operation}”: it finds each part.`, isDone: () => state.recipe.steps.some(({ operation }) => operation === kParts.operation) },
  { text: 'Leave specks out by “min area” until the count is right on every tray.', isDone: () => counted().right === counted().all },
];

function refresh() {
  const task = byId('task');
  const { right, all } = counted();
  task.hidden = all === 0 || task.dataset.closed === 'yes';
  if (task.hidden) return;
  const done = kTasks.map(({ isDone }) => isDone());
  const next = done.indexOf(false);
  task.classList.toggle('solved', next < 0);
  byId('task-text').replaceChildren(...(next < 0
    ? [h('b', `Solved: all ${all} trays are counted.`), ' Set limits under Measurements, save the recipe, or open images of your own.']
    : [h('b', `Task ${next + 1} of ${kTasks.length}: `), kTasks[next].text, h('small', next === 2 ? ` ${right} of ${all} trays are right.` : '')]));
}

// Calls `begun` when the first image is there.
/** @type {(ask: any, begun?: (value?: any) => void) => Promise<void>} */
export const openSample = async (ask, begun = () => {}) => {
  const mine = ++opening;
  for (let seed = 1; seed <= kTrays && mine === opening; ++seed) {
    const made = await ask('sample', { name: 'tray', options: { seed, width: 960, height: 720 } }).catch((error) => {
      if (error.message !== kStopped) throw error;
    });
    if (!made) return;
    const { bytes, truth } = made;
    if (seed === 1) removeImages();
    // Images of the user's own take the place of those that are still to come.
    else if (!state.images.every((image) => image.truth)) break;
    addImages([{ name: `tray-${seed}.png`, blob: new Blob([bytes], { type: 'image/png' }), truth }]);
    if (seed === 1) begun();
  }
};
let opening = 0;
export async function openSampleWithTask(ask) {
  replaceRecipe(structuredClone(kRecipe), []);
  byId('task').dataset.closed = '';
  state.selected = 'bright';
  state.slot = 'bright';
  emit('selected');
  await new Promise((begun, failed) => openSample(ask, begun).catch(failed));
}

// ---- tour ----------------------------------------------------------------------------------------

const kHints = [
  ['film', 'images', 'Your images, each with its verdict. Drop files or a folder anywhere; they never leave this computer.'],
  ['steps', 'steps', 'Steps turn an image into what can be measured. Every change shows at once.'],
  ['canvas', 'picture', 'Wheel and drag zoom and move. Point at a thing to see its row, at a row to see the thing.'],
  ['measurements', 'limits', 'What is measured, with limits. Mark images good or bad, and limits are proposed.'],
  ['save', 'picture', 'Save the recipe: the command line and Python run it and give the same results.'],
];

export function startTour() {
  let at = 0;
  const text = h('p');
  const next = h('button.primary', 'Next');
  const hint = h('div.hint', { role: 'dialog', 'aria-label': 'Hint' }, text, h('p.row', next, h('button', { onclick: () => end() }, 'Skip')));
  document.body.append(hint);
  const end = () => {
    hint.remove();
    document.body.dataset.pane = 'picture';
    document.querySelectorAll('.hinted').forEach((element) => element.classList.remove('hinted'));
  };
  const showHint = () => {
    document.querySelectorAll('.hinted').forEach((element) => element.classList.remove('hinted'));
    if (at === kHints.length) return end();
    const [id, pane, words] = kHints[at];
    document.body.dataset.pane = pane;
    const target = byId(id).closest('section') ?? byId(id);
    target.classList.add('hinted');
    text.textContent = `${at + 1} of ${kHints.length}. ${words}`;
    next.textContent = at === kHints.length - 1 ? 'Done' : 'Next';
    const bounds = target.getBoundingClientRect();
    const width = hint.offsetWidth, height = hint.offsetHeight;
    // Beside what it is about; where there is no room, as on a telephone, over its lower part.
    const gap = 12, right = bounds.right + gap, left = bounds.left - gap - width;
    const isBeside = right + width < innerWidth || left > 0;
    hint.style.left = `${right + width < innerWidth ? right : left > 0 ? left : Math.max(8, (innerWidth - width) / 2)}px`;
    hint.style.top = `${Math.max(8, Math.min(isBeside ? bounds.top + 48 : bounds.bottom - height - 64, innerHeight - height - 8))}px`;
    next.focus();
  };
  next.onclick = () => (++at, showHint());
  hint.onkeydown = (event) => {
    if (event.key === 'Escape') end();
  };
  showHint();
}

export function setUpTask(ask, known) {
  table = known;
  byId('task-close').onclick = () => {
    byId('task').dataset.closed = 'yes';
    refresh();
  };
  byId('sample').onclick = () => openSampleWithTask(ask).catch((error) => say(error.message, true));
  byId('tour').onclick = startTour;
  byId('film').addEventListener('replace', () => removeImages(({ truth }) => truth));
  for (const event of ['recipe', 'inspected', 'images', 'run']) on(event, refresh);
}
