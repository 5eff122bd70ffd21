// Opening and saving: recipes with their files, as JSON or as one zip, and the same for the command
// line and for Python.
import { byId, download, h, openDialog, say } from './dom.js';
import { addImages } from './filmstrip.js';
import { on, replaceRecipe, state } from './store.js';
import { unzip, zip } from './zip.js';

const kImageEnding = /\.(png|jpe?g|tiff?|bmp|pgm|ppm)$/i;
const kMostRecipe = 10 << 20;

// What is saved: a line for each step and measurement, as people write recipes.
export function recipeText(recipe = state.recipe) {
  const { steps, measurements, ...rest } = recipe;
  delete rest.$schema;
  const lines = (list) => `[${list.map((entry) => `\n    ${JSON.stringify(entry)}`).join(',')}${list.length ? '\n  ' : ''}]`;
  const head = Object.entries(rest).map(([key, value]) => `  ${JSON.stringify(key)}: ${JSON.stringify(value)},\n`).join('');
  return `{\n${head}  "steps": ${lines(steps)},\n  "measurements": ${lines(measurements)}\n}\n`;
}

const fileName = () => state.recipe.name.toLowerCase().replace(/[^a-z0-9]+/g, '-').replace(/^-|-$/g, '') || 'recipe';

// The files that steps name.
function usedFiles() {
  const words = new Set(state.recipe.steps.flatMap((step) => Object.values(step).flat()));
  return [...state.files].filter(([name]) => words.has(name));
}

// ---- opening -------------------------------------------------------------------------------------

function parsed(text, name) {
  let recipe;
  try {
    recipe = JSON.parse(text);
  } catch (error) {
    throw new Error(`'${name}' is no JSON: ${error.message}`);
  }
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
  const found = files.find(([path]) => path.endsWith('.json'));
  if (!found) throw new Error(`there is no recipe (.json) in '${name}'`);
  const folder = found[0].slice(0, found[0].lastIndexOf('/') + 1);
  const others = files.filter((file) => file !== found).map(([path, content]) => [path.startsWith(folder) ? path.slice(folder.length) : path, content]);
  return { recipe: parsed(new TextDecoder().decode(found[1]), found[0]), files: others };
}

// Files of any kind, as they are opened, dropped or pasted: recipes, zips, images.
export async function openFiles(files) {
  const images = [], templates = [];
  let opened = null, unknown = 0;
  for (const file of files) {
    try {
      if (/\.json$/i.test(file.name)) {
        if (file.size > kMostRecipe) throw new Error(`'${file.name}' is too large for a recipe`);
        opened = { recipe: parsed(await file.text(), file.name), files: [] };
      } else if (/\.zip$/i.test(file.name)) {
        opened = await openZip(file.name, new Uint8Array(await file.arrayBuffer()));
      } else if (/\.model$/i.test(file.name)) {
        templates.push([file.name, new Uint8Array(await file.arrayBuffer())]);
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
  // Images that the recipe names are its templates.
  if (opened) {
    const words = new Set(opened.recipe.steps?.flatMap((step) => Object.values(step).flat()) ?? []);
    for (const image of images.filter(({ name }) => words.has(name))) {
      opened.files.push([image.name, new Uint8Array(await image.arrayBuffer())]);
      images.splice(images.indexOf(image), 1);
    }
    replaceRecipe(opened.recipe, [...opened.files, ...templates]);
    const missing = [...words].filter((word) => typeof word === 'string' && /\.(png|jpe?g|tiff?|bmp|p[gp]m|model|dat)$/i.test(word) && !state.files.has(word));
    say(missing.length ? `Recipe opened. Open ${missing.join(', ')} too: its steps name ${missing.length > 1 ? 'them' : 'it'}.` : 'Recipe opened.');
  } else {
    for (const [name, bytes] of templates) state.files.set(name, bytes);
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

// Files in dropped folders too.
async function droppedFiles(transfer) {
  const entries = [...transfer.items].map((item) => item.webkitGetAsEntry?.()).filter(Boolean);
  const files = [];
  const walk = async (entry) => {
    if (entry.isFile) files.push(await new Promise((resolve, reject) => entry.file(resolve, reject)));
    else {
      const reader = entry.createReader();
      for (;;) {
        const some = await new Promise((resolve, reject) => reader.readEntries(resolve, reject));
        if (!some.length) break;
        for (const child of some) await walk(child);
      }
    }
  };
  for (const entry of entries) await walk(entry);
  return files.length ? files : [...transfer.files];
}

// ---- saving --------------------------------------------------------------------------------------

function saveDialog() {
  const name = fileName();
  const used = usedFiles();
  const line = `quillon run ${name}.json images/ --out results`;
  const python = `import cv2
import quillon

recipe = quillon.Recipe("${name}.json")
result = recipe.run(cv2.imread("image.png", cv2.IMREAD_UNCHANGED))
print(result.verdict, result.measurements)`;
  const copyable = (title, text) => h('section.copy', h('h3', title), h('pre', text),
    h('button', { onclick: () => navigator.clipboard.writeText(text).then(() => say('Copied.'), () => say('Select the text and copy it.', true)) }, 'Copy'));
  const lines = state.images.filter(({ result, isStale }) => result?.line && !isStale).map(({ result }) => result.line);
  openDialog('Save and carry',
    state.problems.length ? h('p.wrong', `The recipe is not ready yet: ${state.problems[0]}`) : null,
    h('p.row',
      h('button.primary', { onclick: () => download(`${name}.zip`, zip([[`${name}.json`, new TextEncoder().encode(recipeText())], ...used]), 'application/zip') },
        used.length ? `Recipe with ${used.length} ${used.length > 1 ? 'files' : 'file'} (.zip)` : 'Recipe (.zip)'),
      h('button', { onclick: () => download(`${name}.json`, recipeText(), 'application/json') }, 'Recipe alone (.json)'),
      h('button', { disabled: !lines.length, onclick: () => download(`${name}-results.jsonl`, `${lines.join('\n')}\n`, 'application/x-ndjson') }, `Results of ${lines.length} images (.jsonl)`)),
    h('p.quiet', 'The same recipe gives the same results, byte for byte, on the command line and in Python.'),
    copyable('Command line', line), copyable('Python', python), copyable('Recipe', recipeText()));
}

export function setUpCarrying() {
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
    if (!event.dataTransfer.types.includes('Files')) return;
    event.preventDefault();
    document.body.classList.add('dropping');
  });
  for (const end of ['dragleave', 'drop']) document.addEventListener(end, (event) => (end === 'drop' || !event.relatedTarget) && document.body.classList.remove('dropping'));
  document.addEventListener('drop', async (event) => {
    if (!event.dataTransfer.types.includes('Files')) return;
    event.preventDefault();
    openFiles(await droppedFiles(event.dataTransfer));
  });
  document.addEventListener('paste', (event) => {
    const pasted = [...event.clipboardData.files];
    if (pasted.length) openFiles(pasted.map((file, i) => (file.name === 'image.png' ? new File([file], `pasted ${Date.now() % 100000}${i || ''}.png`, { type: file.type }) : file)));
  });
  on('recipe', () => (byId('recipe-name').value = state.recipe.name));
}
