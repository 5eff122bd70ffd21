// The images and their verdicts. They run through the recipe in a worker of their own whenever it
// changes; what is older than the recipe is dimmed.
import { byId, h, say } from './dom.js';
import { emit, on, sourceOf, state } from './store.js';

const kWait = 250;  // milliseconds after the last change
const kTell = 100;  // milliseconds between what charts and counts are told of a run
const kTitles = { pass: 'Pass', fail: 'Fail', unreadable: 'Unreadable', error: 'Error' };

let engine = null, files = null;
let nextId = 1, run = 0, timer = null, isStopped = false;

// ---- images --------------------------------------------------------------------------------------

export function addImages(entries) {
  const taken = new Set(state.images.map(({ name }) => name));
  for (const { name, blob, truth } of entries) {
    let free = name;
    for (let n = 2; taken.has(free); ++n) free = name.replace(/(\.\w+)?$/, ` ${n}$1`);
    taken.add(free);
    const image = { id: nextId++, name: free, blob, truth, mark: null, result: null, before: null, isStale: true };
    state.images.push(image);
    byId('film').append(itemOf(image));
  }
  if (state.current === null && state.images.length) show(state.images[0].id);
  runSoon(0);
  emit('images');
}

/** @param {(image: any) => boolean} which */
export function removeImages(which = () => true) {
  state.images = state.images.filter((image) => !which(image));
  byId('film').replaceChildren(...state.images.map(({ item }) => item));
  if (!state.images.some(({ id }) => id === state.current)) state.current = null;
  if (state.current === null && state.images.length) show(state.images[0].id);
  runSoon(0);
  emit('images');
}

export function show(id) {
  state.current = id;
  for (const image of state.images) image.item?.setAttribute('aria-selected', String(image.id === id));
  emit('current');
}

function mark(image, as) {
  image.mark = image.mark === as ? null : as;
  refresh(image);
  emit('marks');
}

function itemOf(image) {
  const thumbnail = h('canvas', { width: 1, height: 1, 'aria-hidden': 'true' });
  const badge = h('span.verdict');
  const marks = ['good', 'bad'].map((as) => h('button.mark', {
    title: `Marked ${as} (${as[0].toUpperCase()})`, 'aria-label': `Mark ${image.name} as ${as}`, tabIndex: -1,
    onclick: (event) => (event.stopPropagation(), mark(image, as)),
  }, as === 'good' ? '✓' : '✗'));
  const item = h('li', { role: 'option', 'aria-selected': 'false', tabIndex: -1, 'data-id': image.id, title: image.name },
    thumbnail, h('div.about', h('b', image.name), h('div.row', badge, h('small.change'), marks)));
  item.onclick = () => (show(image.id), item.focus());
  Object.assign(image, { item, thumbnail, badge, marks });
  return item;
}

function refresh(image) {
  const { result, before } = image;
  image.badge.textContent = result ? kTitles[result.verdict] : '';
  image.badge.className = `verdict ${result?.verdict ?? ''}`;
  image.badge.title = result?.error || (result?.measurements ?? []).map(({ name, shown }) => `${name}: ${shown}`).join('\n');
  image.item.classList.toggle('stale', image.isStale && Boolean(result));
  const [good, bad] = image.marks;
  good.setAttribute('aria-pressed', String(image.mark === 'good'));
  bad.setAttribute('aria-pressed', String(image.mark === 'bad'));
  const isWrong = (image.mark === 'good' && result && result.verdict !== 'pass') || (image.mark === 'bad' && result?.verdict === 'pass');
  image.item.classList.toggle('misjudged', Boolean(isWrong));
  const hasChanged = state.compared && before && result && before.verdict !== result.verdict;
  image.item.querySelector('.change').textContent = hasChanged ? `was ${before.verdict}` : '';
}
export const refreshAll = () => state.images.forEach(refresh);

function drawThumbnail(image, { width, height, rgba }) {
  Object.assign(image.thumbnail, { width, height });
  image.thumbnail.getContext('2d').putImageData(new ImageData(rgba, width, height), 0, 0);
  image.hasThumbnail = true;
}

// ---- running -------------------------------------------------------------------------------------

// Another recipe: what is known of all images is of the one before.
export function schedule(wait = kWait) {
  for (const image of state.images) image.isStale = true;
  runSoon(wait);
}

function runSoon(wait) {
  clearTimeout(timer);
  isStopped = false;
  // From here on, what a run before finds out is of an older recipe.
  const mine = ++run;
  timer = setTimeout(() => runAll(mine), wait);
}

// All images that are older than the recipe, the one that is shown first. A run ends itself when
// another is to come.
async function runAll(mine) {
  const isCurrent = () => mine === run && !isStopped;
  const recipe = state.recipe.steps.length ? structuredClone(state.recipe) : null;
  const waiting = state.images.filter(({ isStale, hasThumbnail }) => isStale || !hasThumbnail);
  waiting.sort((a, b) => Number(b.id === state.current) - Number(a.id === state.current));
  let told = performance.now();
  for (const [done, image] of waiting.entries()) {
    if (!isCurrent()) break;
    showProgress(done, waiting.length);
    try {
      const { result, thumbnail } = await engine.ask('inspect', {
        recipe, files: engine.newFiles(files()), wantsThumbnail: !image.hasThumbnail,
        source: sourceOf(image),
      });
      if (thumbnail) drawThumbnail(image, thumbnail);
      if (!isCurrent()) break;
      image.result = result;
      image.isStale = false;
      refresh(image);
      if (performance.now() - told > kTell) {
        emit('inspected');
        told = performance.now();
      }
    } catch (error) {
      if (!isCurrent()) break;
      // The library stopped at this image, and was begun anew: the others go on.
      image.result = { verdict: 'error', error: error.message, measurements: [] };
      image.isStale = false;
      refresh(image);
    }
  }
  if (mine === run) {
    showProgress(null);
    emit('inspected');
    emit('run');
  }
}

function showProgress(done, total) {
  const isRunning = done !== null;
  byId('stop').hidden = !isRunning;
  byId('again').hidden = isRunning || !state.images.some(({ isStale }) => isStale);
  byId('progress').hidden = !isRunning;
  if (isRunning) {
    byId('progress').max = total;
    byId('progress').value = done;
    return;
  }
  const counts = new Map();
  for (const { result, isStale } of state.images) {
    if (result && !isStale) counts.set(result.verdict, (counts.get(result.verdict) ?? 0) + 1);
  }
  byId('counts').replaceChildren(...[...counts].map(([verdict, count]) => h(`span.verdict.${verdict}`, `${count} ${verdict}`)));
}

export function setUpFilmstrip(ownEngine, filesOf) {
  engine = ownEngine;
  files = filesOf;
  const film = byId('film');
  byId('stop').onclick = () => {
    isStopped = true;
    engine.stop();
    showProgress(null);
    say('Stopped. Images that were not reached keep their older verdicts.');
  };
  byId('again').onclick = () => runSoon(0);
  film.onkeydown = (event) => {
    const at = state.images.findIndex(({ id }) => id === state.current);
    const to = { ArrowDown: at + 1, ArrowUp: at - 1, ArrowRight: at + 1, ArrowLeft: at - 1, Home: 0, End: state.images.length - 1 }[event.key];
    const image = state.images[at];
    if (to !== undefined && state.images[to]) {
      show(state.images[to].id);
      state.images[to].item.scrollIntoView({ block: 'nearest', inline: 'nearest' });
    } else if (event.key === 'g' && image) mark(image, 'good');
    else if (event.key === 'b' && image) mark(image, 'bad');
    else if (event.key === 'Delete' && image) removeImages(({ id }) => id === image.id);
    else return;
    event.preventDefault();
  };
  on('recipe', () => schedule());
  on('compared', refreshAll);
}
