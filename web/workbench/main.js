// The workbench: puts the panes together. The image that is shown runs through the recipe in a
// worker of its own, and only the newest state is asked for; the filmstrip has another.
import licenses from '../package/LICENSES.md';
import { setUpCalibration } from './calibrate.js';
import { openFiles, setUpCarrying } from './carry.js';
import { greyHistogram, lineProfile } from './charts.js';
import { byId, fill, h, openDialog, plain, say } from './dom.js';
import { Engine, kCrashed, kStopped } from './engine.js';
import { addImages, refreshAll, schedule, setUpFilmstrip } from './filmstrip.js';
import { setUpMeasurements } from './measurements.js';
import { kFilePrefix, placeOf } from './runnable.js';
import { watch } from './preview.js';
import { setUpSteps } from './steps.js';
import {
  canRedo, canUndo, change, emit, endOfChange, imageOf, keepNow, on, outputOf, redo, replaceRecipe, restoreDraft, sourceOf, state, undo,
} from './store.js';
import { openSample, openSampleWithTask, setUpTask, startTour } from './task.js';
import { setUpTeaching } from './teach.js';
import { focusThing, profile, pictureShown, setUpViewer, show, showThings } from './viewer.js';

const kMostRows = 500;
const kBlink = 500;  // milliseconds

const crashed = (message) => say(`The library stopped (${message}). It was begun anew; the recipe is kept.`, true);
const live = new Engine(crashed), strip = new Engine(crashed);
let table = null;

// ---- files: a version for each set of them -------------------------------------------------------

/** @type {{ key: string, all: [string, Uint8Array][], version: number }} */
let sent = { key: '', all: [], version: 0 };
let numbers = new WeakMap(), nextNumber = 1;
function files() {
  const all = [...state.files];
  const key = JSON.stringify(all.map(([name, bytes]) => {
    if (!numbers.has(bytes)) numbers.set(bytes, nextNumber++);
    return [name, numbers.get(bytes)];
  }));
  if (key !== sent.key) sent = { key, all, version: sent.version + 1 };
  return sent;
}

// ---- the image that is shown ---------------------------------------------------------------------

let isAsking = false, isWanted = false;

// Arguments that are grey values: they are lines in the histogram of what the step works on.
function thresholdsOf(step) {
  const operation = table.operations.find(({ name }) => name === step?.operation);
  return (operation?.arguments ?? []).filter(({ type, max }) => max === 255 && (type === 'whole' || type === 'number' || type === 'whole-range'))
    .filter(({ name }) => name in step && step[name] !== undefined);
}
const selectedStep = () => state.recipe.steps.find(({ name }) => name === state.selected);

async function look() {
  isWanted = true;
  if (isAsking) return;
  isAsking = true;
  while (isWanted) {
    isWanted = false;
    const image = imageOf(state.current);
    const step = selectedStep();
    const began = performance.now();
    const done = watch(image, files);
    try {
      const answer = await live.ask('look', {
        recipe: structuredClone(state.recipe), files: live.newFiles(files()), slot: state.slot,
        source: image ? sourceOf(image) : null,
        ofInput: step && thresholdsOf(step).length ? step.name : null,
      });
      if (imageOf(state.current) !== image) continue;
      shown(answer, performance.now() - began);
    } catch (error) {
      if (![kStopped, kCrashed].includes(error.message)) say(error.message, true);
    } finally {
      done();
    }
  }
  isAsking = false;
}

function shown(answer, milliseconds) {
  state.look = answer;
  state.problems = answer.problems;
  if (answer.picture) show(answer.picture);
  showThings(answer.inspection);
  const error = answer.inspection?.error;
  byId('whole').textContent = [error, ...answer.problems.map((problem) => placeOf(problem, state.recipe)).filter(({ list, field }) => !list && !(field === 'steps' || field === 'measurements')).map(({ field, text }) => `${field ?? 'recipe'}: ${text}`)].filter(Boolean).join('\n');
  document.body.dataset.latency = milliseconds.toFixed(1);
  drawRows();
  drawCharts();
  emit('looked');
}

// ---- histogram, profile, rows --------------------------------------------------------------------

let draggedHandle = false;
function drawCharts() {
  if (draggedHandle) return;
  const picture = pictureShown();
  if (!picture) return;
  const step = selectedStep();
  const handles = [];
  if (state.look?.input) {
    for (const { name, type } of thresholdsOf(step)) {
      if (type === 'whole-range') step[name].forEach((at, place) => handles.push({ name: `${name} ${place ? 'high' : 'low'}`, argument: name, place, at }));
      else handles.push({ name, argument: name, at: step[name] });
    }
  }
  const counts = handles.length ? state.look.input : histogramOf(picture);
  const caption = handles.length ? `Grey values that “${step.name}” works on; drag the lines.` : `Grey values of ${state.look?.isImage ?? true ? 'the image' : `“${state.slot}”`}.`;
  fill(byId('histogram'), greyHistogram(counts, handles, moveThreshold, () => {
    draggedHandle = false;
    endOfChange();
    emit('recipe', null);
  }), h('p', caption));
  drawProfile();
}

function moveThreshold({ argument, place }, value) {
  draggedHandle = true;
  change(({ steps }) => {
    const step = steps.find(({ name }) => name === state.selected);
    if (place === undefined) step[argument] = value;
    else step[argument] = step[argument].map((other, i) => (i === place ? value : place === 0 ? Math.max(other, value) : Math.min(other, value)));
  }, `threshold ${argument}`);
}

function histogramOf({ rgba }) {
  const counts = new Uint32Array(256);
  for (let i = 1; i < rgba.length; i += 4) ++counts[rgba[i]];
  return counts;
}

function drawProfile() {
  const values = profile();
  byId('profile').replaceChildren(...(values ? [lineProfile(values), h('p', `${values.length} pixels, ${plain(Math.min(...values), 0)} to ${plain(Math.max(...values), 0)}`)] : []));
}

function drawRows() {
  const steps = (state.look?.inspection?.steps ?? []).filter(({ things }) => things?.length);
  const step = steps.find(({ name }) => name === state.selected) ?? steps[0];
  if (!step) return byId('rows').replaceChildren();
  const columns = Object.keys(step.things[0]).filter((key) => !['left', 'top', 'right', 'bottom', 'corners'].includes(key));
  const decimals = Object.fromEntries(table.quantities.map((row) => [row.name, row.decimals]));
  const body = h('tbody', step.things.slice(0, kMostRows).map((thing, row) => h('tr', {
    'data-row': row, onpointerenter: () => focusThing(step.name, row), onpointerleave: () => focusThing(null),
  }, columns.map((key) => h('td', key === 'n' ? String(thing.n) : thing[key] === undefined ? '' : thing[key].toFixed(decimals[key] ?? 2))))));
  byId('rows').replaceChildren(h('table', { 'data-of': step.name }, h('thead', h('tr', columns.map((key) => h('th', key === 'n' ? step.name : key)))), body));
}

function lightRow(entry, scrolls) {
  for (const row of byId('rows').querySelectorAll('tr.on')) row.classList.remove('on');
  const isHere = entry && byId('rows').querySelector('table')?.dataset.of === entry.step;
  const row = isHere ? byId('rows').querySelector(`[data-row="${entry.row}"]`) : null;
  row?.classList.add('on');
  if (scrolls) row?.scrollIntoView({ block: 'nearest' });
}

// By the keyboard, as pointing at a row does it.
function moveThroughRows(event) {
  const by = { ArrowDown: 1, ArrowUp: -1 }[event.key];
  const shown = byId('rows').querySelector('table');
  if (!by || !shown) return;
  event.preventDefault();
  const rows = [...shown.tBodies[0].rows];
  const at = rows.findIndex(({ classList }) => classList.contains('on'));
  const row = Math.min(Math.max(at + by, 0), rows.length - 1);
  focusThing(shown.dataset.of, row);
  lightRow({ step: shown.dataset.of, row }, true);
}

// ---- which picture -------------------------------------------------------------------------------

function drawWhich() {
  const pictures = state.recipe.steps.filter((step) => table.operations.find(({ name }) => name === step.operation)?.output.includes('picture'));
  byId('which').replaceChildren(h('option', { value: '' }, 'image'), ...state.recipe.steps.map((step) => h('option', {
    value: step.name, selected: step.name === state.slot,
  }, pictures.includes(step) ? step.name : `${step.name} (on the image)`)),
  ...[...state.files.keys()].filter((name) => !/\.(model|dat|json)$/i.test(name)).map((name) => h('option', {
    value: kFilePrefix + name, selected: state.slot === kFilePrefix + name,
  }, kFilePrefix + name)));
}

let blinking = null;
function blink() {
  const isOn = blinking === null;
  byId('blink').setAttribute('aria-pressed', String(isOn));
  clearInterval(blinking);
  blinking = null;
  if (!isOn) return look();
  const chosen = state.slot;
  let isImage = false;
  blinking = setInterval(() => {
    if (state.slot !== chosen && state.slot !== null) return blink();
    isImage = !isImage;
    state.slot = isImage ? null : chosen;
    look();
  }, kBlink);
}

// ---- versions ------------------------------------------------------------------------------------

function compare() {
  const isOn = state.compared === null;
  state.compared = isOn ? JSON.stringify(state.recipe) : null;
  for (const image of state.images) image.before = isOn ? image.result : null;
  byId('compare').setAttribute('aria-pressed', String(isOn));
  if (isOn) say('These verdicts are kept. Change the recipe, and the filmstrip says what became different.');
  showCompared();
  emit('compared');
}

function showCompared() {
  const place = byId('compared');
  place.hidden = state.compared === null;
  if (place.hidden) return;
  const known = state.images.filter(({ before, result, isStale }) => before && result && !isStale);
  const changed = known.filter(({ before, result }) => before.verdict !== result.verdict);
  const count = (verdict, side) => known.filter((image) => image[side].verdict === verdict).length;
  const values = known.filter(({ before, result }) => before.line !== result.line).length;
  place.replaceChildren(h('b', `Before ${count('pass', 'before')} pass, now ${count('pass', 'result')} pass.`),
    ` ${changed.length} of ${known.length} verdicts differ, ${values} results. `,
    h('button', { onclick: () => replaceRecipe(JSON.parse(state.compared), state.files.entries()) }, 'Take the version before'));
  refreshAll();
}

// ---- camera --------------------------------------------------------------------------------------

async function openCamera() {
  let stream;
  try {
    stream = await navigator.mediaDevices.getUserMedia({ video: { width: { ideal: 1920 } } });
  } catch (error) {
    return say(`There is no camera to use: ${error.message}`, true);
  }
  const video = h('video', { autoplay: true, muted: true, playsInline: true, srcObject: stream });
  const { dialog } = openDialog('Camera', video, h('p.row', h('button.primary', {
    onclick: async () => {
      const canvas = h('canvas', { width: video.videoWidth, height: video.videoHeight });
      canvas.getContext('2d').drawImage(video, 0, 0);
      const blob = await new Promise((resolve) => canvas.toBlob(resolve, 'image/png'));
      addImages([{ name: `camera ${state.images.length + 1}.png`, blob }]);
    },
  }, 'Take a picture')));
  dialog.addEventListener('close', () => stream.getTracks().forEach((track) => track.stop()));
}

// ---- about ---------------------------------------------------------------------------------------

// The rows of the table of licences, as text.
function openAbout() {
  const rows = licenses.split('\n').filter((row) => row.startsWith('| ')).map((row) => row.split('|').slice(1, -1).map((cell) => cell.trim()));
  openDialog('About', h('p', `Quillon ${table.version}, compiled to WebAssembly. Reads ${table.formats}. Nothing leaves this page.`),
    h('h3', 'What is compiled into it'), h('ul', rows.slice(1).map(([what, license, of]) => h('li', h('b', what), `: ${license}; ${of}`))));
}

// ---- begin ---------------------------------------------------------------------------------------

function setUpKeys() {
  document.addEventListener('keydown', (event) => {
    const isUndo = (event.ctrlKey || event.metaKey) && event.key.toLowerCase() === 'z';
    const isRedo = (event.ctrlKey || event.metaKey) && event.key.toLowerCase() === 'y';
    if ((event.ctrlKey || event.metaKey) && event.key.toLowerCase() === 's') byId('save').click();
    else if (isRedo || (isUndo && event.shiftKey)) redo();
    else if (isUndo) undo();
    else return;
    event.preventDefault();
  });
  const refresh = () => {
    byId('undo').disabled = !canUndo();
    byId('redo').disabled = !canRedo();
  };
  byId('undo').onclick = undo;
  byId('redo').onclick = redo;
  on('recipe', refresh);
  refresh();
  for (const button of /** @type {NodeListOf<HTMLElement>} */ (document.querySelectorAll('[data-goto]'))) {
    button.onclick = () => (document.body.dataset.pane = button.dataset.goto);
  }
}

async function begin() {
  setUpViewer();
  table = await live.ask('table');
  const ask = (work, given) => live.ask(work, given);
  const drawSample = (work, given) => strip.ask(work, given);
  setUpSteps(table);
  setUpMeasurements(table);
  setUpFilmstrip(strip, files);
  setUpCarrying(live, files);
  setUpTask(drawSample, table);
  setUpTeaching(ask);
  setUpCalibration(live);
  setUpKeys();
  byId('recipe-name').onchange = (event) => change((recipe) => (recipe.name = event.target.value));
  byId('which').onchange = (event) => {
    state.slot = event.target.value || null;
    emit('slot');
  };
  byId('blink').onclick = blink;
  byId('rows').onkeydown = moveThroughRows;
  byId('compare').onclick = compare;
  byId('camera').onclick = openCamera;
  byId('about').onclick = openAbout;
  byId('give-up').onclick = () => {
    live.stop();
    say('Stopped. The picture is that of an earlier recipe or image; the next change begins anew.');
  };
  for (const event of ['recipe', 'selected', 'slot']) {
    on(event, drawWhich);
    on(event, look);
  }
  on('current', look);
  on('line', drawProfile);
  on('point', (entry) => lightRow(entry, false));
  on('pick', (entry) => lightRow(entry, true));
  on('run', showCompared);
  on('looked', drawWhich);
  // A page that goes away leaves its draft.
  addEventListener('pagehide', keepNow);

  const draft = await restoreDraft();
  if (draft?.recipe?.steps?.length) {
    replaceRecipe(draft.recipe, draft.files);
    await new Promise((begun, failed) => openSample(drawSample, begun).catch(failed));
    if (!draft.isSample) {
      byId('task').dataset.closed = 'yes';
      say('Your recipe is back. Open its images: a page cannot keep those.');
    }
  } else {
    await openSampleWithTask(drawSample);
    if (!draft) startTour();
  }
  document.body.dataset.ready = 'yes';
  // For programs that drive the page.
  globalThis.workbench = { state, openFiles, live, strip, schedule };
}

begin().catch((error) => {
  document.body.dataset.ready = 'failed';
  say(`The workbench could not begin: ${error.message}`, true);
});
