// What the page works on: the recipe with the files that it names, the images, what is chosen. The
// recipe has a history, and is kept in the browser's storage so that nothing is lost with the page.

import { kFilePrefix } from './runnable.js';

const kMostVersions = 200;
const kStorage = 'quillon-workbench', kDraft = 'draft';

/** @type {any} */
export const state = {
  recipe: { name: 'New recipe', steps: [], measurements: [] },
  files: new Map(),  // name: Uint8Array, what steps name
  images: [],        // {id, name, blob, mark, truth, result, before, isStale, thumbnail}
  current: null,     // id of the image that is shown
  slot: null,        // name of the step whose picture is shown; null: the image
  selected: null,    // name of the step whose form is open
  look: null,        // what the worker last told of the current image
  problems: [],
  compared: null,    // the recipe before, as text, while two versions are compared
};

const listeners = new Map();
export function on(event, listener) {
  listeners.set(event, [...(listeners.get(event) ?? []), listener]);
}
export function emit(event, detail) {
  for (const listener of listeners.get(event) ?? []) listener(detail);
}

// ---- history -------------------------------------------------------------------------------------

/** @type {any[]} */
let past = [], future = [];
/** @type {string | null} */
let lastKey = null;
const version = () => ({ recipe: structuredClone(state.recipe), files: new Map(state.files) });

// Changes the recipe. Changes of one key after one another, as by a slider, are one step of undo.
/** @param {string | null} key */
export function change(work, key = null) {
  if (key === null || key !== lastKey) {
    past.push(version());
    if (past.length > kMostVersions) past.shift();
  }
  lastKey = key;
  future = [];
  work(state.recipe, state.files);
  changed(key);
}
export function endOfChange() {
  lastKey = null;
}
function restore(from, to) {
  if (!from.length) return;
  to.push(version());
  Object.assign(state, from.pop());
  lastKey = null;
  changed(null);
}
export const undo = () => restore(past, future);
export const redo = () => restore(future, past);
export const canUndo = () => past.length > 0;
export const canRedo = () => future.length > 0;

function changed(key) {
  if (!state.recipe.steps.some(({ name }) => name === state.selected)) state.selected = null;
  const slots = [...state.recipe.steps.map(({ name }) => name), ...[...state.files.keys()].map((name) => kFilePrefix + name)];
  if (!slots.includes(state.slot)) state.slot = null;
  emit('recipe', key);
  keep();
}

// Takes another recipe in the place of this one; undo brings it back.
export function replaceRecipe(recipe, files) {
  change((_, present) => {
    present.clear();
    for (const [name, bytes] of files) present.set(name, bytes);
    state.recipe = { ...recipe, steps: recipe.steps ?? [], measurements: recipe.measurements ?? [] };
  });
}

// ---- names ---------------------------------------------------------------------------------------

export function freeName(wanted, taken) {
  let name = wanted;
  for (let n = 2; taken.includes(name); ++n) name = `${wanted} ${n}`;
  return name;
}
export const outputOf = (step) => step.output ?? step.name;
export const imageOf = (id) => state.images.find((image) => image.id === id);
// What a worker is told of an image.
export const sourceOf = ({ id, name, blob }) => ({ id, name, blob });

// ---- storage -------------------------------------------------------------------------------------

function withDrafts(mode, work) {
  return new Promise((resolve) => {
    const opening = indexedDB.open(kStorage, 1);
    opening.onupgradeneeded = () => opening.result.createObjectStore(kDraft);
    opening.onerror = () => resolve(undefined);
    opening.onsuccess = () => {
      const request = work(opening.result.transaction(kDraft, mode).objectStore(kDraft));
      request.onsuccess = () => resolve(request.result);
      request.onerror = () => resolve(undefined);
    };
  });
}

// The recipe is text, and kept before the change is over; files may be large, and follow.
let keeping = null;
function keep() {
  try {
    const isSample = state.images.some(({ truth }) => truth);
    localStorage.setItem(kStorage, JSON.stringify({ recipe: state.recipe, isSample }));
  } catch {
    // Private windows have no storage, and a full one takes no more.
  }
  clearTimeout(keeping);
  keeping = setTimeout(keepNow, 200);
}
export function keepNow() {
  clearTimeout(keeping);
  return withDrafts('readwrite', (store) => store.put([...state.files], kDraft)).catch(() => {});
}
// What an earlier page left, or nothing.
export async function restoreDraft() {
  try {
    const draft = JSON.parse(localStorage.getItem(kStorage) ?? 'null');
    if (!draft) return null;
    const files = await withDrafts('readonly', (store) => store.get(kDraft)).catch(() => null);
    return { ...draft, files: new Map(files ?? []) };
  } catch {
    return null;
  }
}
