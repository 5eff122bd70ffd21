// What is shown while a step takes long: how long it has been, and the step's result on the part of the
// image that is visible, or on a reduced picture where all of it is. A worker of its own makes it beside
// the one that works on the whole.
import { byId, plain } from './dom.js';
import { Engine } from './engine.js';
import { outputOf, sourceOf, state } from './store.js';
import { showPreview, visiblePart } from './viewer.js';

const kSlow = 300;              // milliseconds after which somebody wonders
const kMostPixels = 300_000;    // of a preview
const kTick = 250;

let engine = null;
let usual = 0;  // milliseconds that the last slow image took

// The steps that a step's result is made by, itself among them.
function stepsFor(recipe, slot) {
  const wanted = new Set([slot]);
  return recipe.steps.toReversed().filter((step) => {
    if (!wanted.has(step.name) && !wanted.has(outputOf(step))) return false;
    for (const input of [step.input].flat()) wanted.add(input);
    return true;
  }).reverse();
}

async function ask(image, files) {
  const steps = stepsFor(structuredClone(state.recipe), state.slot);
  if (!steps.length) return '';
  engine ??= new Engine();
  const made = await engine.ask('preview', {
    recipe: { ...state.recipe, steps, measurements: [] }, files: engine.newFiles(files()), source: sourceOf(image), slot: state.slot, visible: visiblePart(), mostPixels: kMostPixels,
  }).catch(() => null);  // a part may be too small for a template: the whole decides
  if (!made) return '';
  showPreview(made);
  const { part, reduced } = made;
  const of = part.isAll ? 'the image' : 'the visible part';
  return reduced > 1 ? `; meanwhile ${of} at 1:${reduced}` : `; meanwhile ${of}`;
}

// Begins to watch work on an image; what it returns is called when the work is done.
export function watch(image, files) {
  const began = performance.now();
  let ticking = null, isDone = false, about = '';
  const tell = () => {
    const seconds = (performance.now() - began) / 1000;
    const expected = usual > kSlow ? ` of about ${plain(usual / 1000, 1)} s` : ' s';
    byId('busy-text').textContent = `Working… ${plain(seconds, 0)}${expected}${about}`;
    const bar = byId('busy-progress');
    if (usual > kSlow) bar.value = Math.min(0.98, (1000 * seconds) / usual);
    else bar.removeAttribute('value');
  };
  const slow = setTimeout(async () => {
    byId('busy').hidden = false;
    tell();
    ticking = setInterval(tell, kTick);
    if (!image) return;
    const told = await ask(image, files);
    if (isDone || !told) return;
    about = told;
    tell();
  }, kSlow);
  return () => {
    isDone = true;
    clearTimeout(slow);
    clearInterval(ticking);
    byId('busy').hidden = true;
    const took = performance.now() - began;
    if (took > kSlow) usual = took;
    if (engine?.isBusy) engine.stop();
    showPreview(null);
  };
}
