// Opening and saving: recipes with their files, as JSON or as one zip, the report's pages, and the same
// for the command line, for Python and for C++.
import { byId, download, h, openDialog, say } from './dom.js';
import { addImages } from './filmstrip.js';
import { change, on, replaceRecipe, sourceOf, state } from './store.js';
import { unzip, zip } from './zip.js';

const kImageEnding = /\.(png|jpe?g|tiff?|bmp|pgm|ppm)$/i;
const kMostRecipe = 10 << 20;
const kMostPages = 500;  // of one report: each holds its pictures
let engine = null, recipeFiles = null;

// What is saved: a line for each step and measurement, as people write recipes.
export function recipeText(recipe = state.recipe) {
  const { steps, measurements, ...rest } = recipe;
  delete rest.$schema;
  const lines = (list) => `[${list.map((entry) => `\n    ${JSON.stringify(entry)}`).join(',')}${list.length ? '\n  ' : ''}]`;
  const head = Object.entries(rest).map(([key, value]) => `  ${JSON.stringify(key)}: ${JSON.stringify(value)},\n`).join('');
  return `{\n${head}  "steps": ${lines(steps)},\n  "measurements": ${lines(measurements)}\n}\n`;
}

// A name for the recipe's file that no file of its steps has.
function fileName() {
  const name = state.recipe.name.toLowerCase().replace(/[^a-z0-9]+/g, '-').replace(/^-|-$/g, '') || 'recipe';
  return state.files.has(`${name}.json`) ? `${name}-recipe` : name;
}

// What steps name, files among it.
const wordsOf = (recipe) => new Set(recipe.steps?.flatMap((step) => Object.values(step).flat()) ?? []);
function usedFiles() {
  const words = wordsOf(state.recipe);
  return [...state.files].filter(([name]) => words.has(name));
}

// ---- opening -------------------------------------------------------------------------------------

function asJson(text, name) {
  try {
    return JSON.parse(text);
  } catch (error) {
    throw new Error(`'${name}' is no JSON: ${error.message}`);
  }
}
// A file that a step reads, such as a camera's: it says what it is, and has no steps.
const isForSteps = (json) => typeof json?.kind === 'string' && json.steps === undefined;

function parsed(text, name) {
  const recipe = asJson(text, name);
  const isList = (list) => list === undefined || (Array.isArray(list) && list.every((entry) => entry && typeof entry === 'object' && !Array.isArray(entry)));
  if (!recipe || typeof recipe !== 'object' || !isList(recipe.steps) || !isList(recipe.measurements) || (!recipe.steps && !recipe.measurements)) {
    throw new Error(`'${name}' is no recipe: it has no list of steps`);
  }
  // What forms show as text must be text.
  for (const entry of [...(recipe.steps ?? []), ...(recipe.measurements ?? [])]) entry.name = String(entry.name ?? 'unnamed');
  return { ...recipe, name: String(recipe.name ?? 'unnamed') };
}

async function openZip(name, bytes) {
  let files;
  try {
    files = await unzip(bytes);
  } catch (error) {
    throw new Error(`cannot read '${name}': ${error.message}`);
  }
  const text = (bytes) => new TextDecoder().decode(bytes);
  const found = files.find(([path, content]) => path.endsWith('.json') && !isForSteps(asJson(text(content), path)));
  if (!found) throw new Error(`there is no recipe (.json) in '${name}'`);
  const folder = found[0].slice(0, found[0].lastIndexOf('/') + 1);
  const others = files.filter((file) => file !== found).map(([path, content]) => [path.startsWith(folder) ? path.slice(folder.length) : path, content]);
  return { recipe: parsed(text(found[1]), found[0]), files: others };
}

// Files of any kind, as they are opened, dropped or pasted: recipes, zips, images.
export async function openFiles(files) {
  const images = [], templates = [];
  let opened = null, unknown = 0;
  for (const file of files) {
    try {
      if (/\.json$/i.test(file.name)) {
        if (file.size > kMostRecipe) throw new Error(`'${file.name}' is too large for a recipe`);
        const text = await file.text();
        if (isForSteps(asJson(text, file.name))) templates.push(file);
        else opened = { recipe: parsed(text, file.name), files: [] };
      } else if (/\.zip$/i.test(file.name)) {
        opened = await openZip(file.name, new Uint8Array(await file.arrayBuffer()));
      } else if (/\.(model|dat)$/i.test(file.name)) {
        templates.push(file);
      } else if (kImageEnding.test(file.name)) {
        images.push(file);
      } else if (file.type.startsWith('image/')) {
        images.push(await asPng(file));
      } else {
        ++unknown;
      }
    } catch (error) {
      say(error.message, true);
    }
  }
  // Images that the recipe names, and that it does not have yet, are its templates.
  const words = wordsOf(opened?.recipe ?? state.recipe);
  for (const image of images.filter(({ name }) => words.has(name) && (opened || !state.files.has(name)))) {
    templates.push(image);
    images.splice(images.indexOf(image), 1);
  }
  const read = await Promise.all(templates.map(async (file) => [file.name, new Uint8Array(await file.arrayBuffer())]));
  if (opened) {
    replaceRecipe(opened.recipe, [...opened.files, ...read]);
    const missing = [...words].filter((word) => typeof word === 'string' && /\.(png|jpe?g|tiff?|bmp|p[gp]m|model|dat|json)$/i.test(word) && !state.files.has(word));
    say(missing.length ? `Recipe opened. Open ${missing.join(', ')} too: its steps name ${missing.length > 1 ? 'them' : 'it'}.` : 'Recipe opened.');
  } else if (read.length) {
    change((_, present) => read.forEach(([name, bytes]) => present.set(name, bytes)));
    say(`${read.map(([name]) => name).join(', ')}: there for the steps of the recipe.`);
  }
  const isSample = state.images.length > 0 && state.images.every(({ truth }) => truth);
  if (images.length) {
    if (isSample) byId('film').dispatchEvent(new CustomEvent('replace'));
    addImages(images.map((file) => ({ name: file.webkitRelativePath || file.name, blob: file })));
  }
  if (unknown && unknown === files.length) say('Nothing here is an image, a recipe or a zip of one.', true);
}

// What the browser can show and the library does not read.
async function asPng(file) {
  const shown = await createImageBitmap(file).catch(() => {
    throw new Error(`cannot read image '${file.name}'`);
  });
  const canvas = h('canvas', { width: shown.width, height: shown.height });
  canvas.getContext('2d').drawImage(shown, 0, 0);
  const blob = await new Promise((resolve) => canvas.toBlob(resolve, 'image/png'));
  return new File([blob], file.name.replace(/\.\w+$/, '') + '.png', { type: 'image/png' });
}

// Files in dropped folders too. Two ways lead into those: one that Chromium does not go from file://,
// and one that it alone has. What is dropped must be asked for its ways at once.
async function droppedFiles(transfer) {
  const dropped = [...transfer.items].filter(({ kind }) => kind === 'file').map((item) => ({
    file: item.getAsFile(), entry: item.webkitGetAsEntry?.(), handle: item.getAsFileSystemHandle?.(),
  }));
  const files = [];
  const walkHandle = async (handle) => {
    if (handle.kind === 'file') files.push(await handle.getFile());
    else for await (const child of handle.values()) await walkHandle(child);
  };
  const walkEntry = async (entry) => {
    if (entry.isFile) return files.push(await new Promise((resolve, reject) => entry.file(resolve, reject)));
    const reader = entry.createReader();
    for (;;) {
      const some = await new Promise((resolve, reject) => reader.readEntries(resolve, reject));
      if (!some.length) return;
      for (const child of some) await walkEntry(child);
    }
  };
  for (const { file, entry, handle } of dropped) {
    if (!entry?.isDirectory) files.push(file);
    else if (handle) await walkHandle(await handle);
    else await walkEntry(entry);
  }
  return files;
}

// ---- saving --------------------------------------------------------------------------------------

// The pages that `quillon run --out` writes, of the images as they stand, as one zip.
async function saveReport(name, button) {
  const images = state.images.slice(0, kMostPages);
  const label = button.textContent;
  button.disabled = true;
  try {
    const { recipe, files } = { recipe: structuredClone(state.recipe), files: engine.newFiles(recipeFiles()) };
    await engine.ask('beginReport', { recipe, files });
    const all = [];
    for (const [done, image] of images.entries()) {
      if (!button.isConnected) return;  // the dialog was closed
      button.textContent = `Page ${done + 1} of ${images.length}…`;
      all.push(...await engine.ask('addToReport', { source: sourceOf(image) }));
    }
    all.push(...await engine.ask('endReport'));
    download(`${name}-report.zip`, zip(all), 'application/zip');
    if (images.length < state.images.length) say(`The report has the first ${kMostPages} images; quillon run writes one of all.`);
  } catch (error) {
    say(error.message, true);
  } finally {
    button.disabled = false;
    button.textContent = label;
  }
}

function saveDialog() {
  const name = fileName();
  const used = usedFiles();
  const line = `quillon run ${name}.json images/ --out results`;
  const python = `import cv2
import quillon

recipe = quillon.Recipe("${name}.json")
result = recipe.run(cv2.imread("image.png", cv2.IMREAD_UNCHANGED))
print(result.verdict, result.measurements)`;
  const cpp = `// g++ -std=c++20 program.cpp $(pkg-config --cflags --libs quillon-recipe)
#include <exception>
#include <iostream>

#include "quillon/recipe.h"

int main(int count, char** images) try {
  quillon::RecipeRunner recipe("${name}.json");
  for (int i = 1; i < count; ++i) std::cout << recipe.RunFile(images[i]).line << '\\n';
} catch (const std::exception& error) {
  std::cerr << error.what() << '\\n';
  return 1;
}`;
  const copyable = (title, text) => h('section.copy', h('h3', title), h('pre', text),
    h('button', { onclick: () => navigator.clipboard.writeText(text).then(() => say('Copied.'), () => say('Select the text and copy it.', true)) }, 'Copy'));
  const lines = state.images.filter(({ result, isStale }) => result?.line && !isStale).map(({ result }) => result.line);
  const report = h('button', { disabled: state.problems.length > 0 || !state.images.length, onclick: () => saveReport(name, report) }, `Report of ${Math.min(state.images.length, kMostPages)} images (.zip)`);
  openDialog('Save and carry',
    state.problems.length ? h('p.wrong', `The recipe is not ready yet: ${state.problems[0]}`) : null,
    h('p.row',
      h('button.primary', { onclick: () => download(`${name}.zip`, zip([[`${name}.json`, new TextEncoder().encode(recipeText())], ...used]), 'application/zip') },
        used.length ? `Recipe with ${used.length} ${used.length > 1 ? 'files' : 'file'} (.zip)` : 'Recipe (.zip)'),
      h('button', { onclick: () => download(`${name}.json`, recipeText(), 'application/json') }, 'Recipe alone (.json)'),
      h('button', { disabled: !lines.length, onclick: () => download(`${name}-results.jsonl`, `${lines.join('\n')}\n`, 'application/x-ndjson') }, `Results of ${lines.length} images (.jsonl)`),
      report),
    h('p.quiet', 'The same recipe gives the same results, byte for byte, on the command line, in Python and in C++.'),
    copyable('Command line', line), copyable('Python', python), copyable('C++', cpp), copyable('Recipe', recipeText()));
}

export function setUpCarrying(ownEngine, filesOf) {
  engine = ownEngine;
  recipeFiles = filesOf;
  const picker = (attributes) => {
    const input = h('input', { type: 'file', multiple: true, hidden: true, ...attributes });
    input.onchange = async () => {
      await openFiles([...input.files]);
      input.value = '';
    };
    document.body.append(input);
    return input;
  };
  const files = picker({ id: 'open-input' });
  const folder = picker({ webkitdirectory: true });
  byId('open').onclick = () => files.click();
  byId('open-folder').onclick = () => folder.click();
  byId('save').onclick = saveDialog;
  document.addEventListener('dragover', (event) => {
    if (!event.dataTransfer?.types.includes('Files')) return;
    event.preventDefault();
    document.body.classList.add('dropping');
  });
  const isOver = () => document.body.classList.remove('dropping');
  document.addEventListener('dragleave', (event) => event.relatedTarget || isOver());
  document.addEventListener('drop', isOver);
  document.addEventListener('drop', async (event) => {
    if (!event.dataTransfer?.types.includes('Files')) return;
    event.preventDefault();
    await droppedFiles(event.dataTransfer).then(openFiles).catch((error) => say(`This cannot be opened by dropping it (${error.message}): Open… and Folder… do it.`, true));
  });
  document.addEventListener('paste', (event) => {
    const pasted = [...event.clipboardData?.files ?? []];
    if (pasted.length) openFiles(pasted.map((file, i) => (file.name === 'image.png' ? new File([file], `pasted ${Date.now() % 100000}${i || ''}.png`, { type: file.type }) : file)));
  });
  on('recipe', () => (byId('recipe-name').value = state.recipe.name));
}
