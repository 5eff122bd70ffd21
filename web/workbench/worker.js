// The library at work beside the page: one message after the other, so that the page never waits.
import { load } from 'quillon';
import { kFilePrefix, runnable } from './runnable.js';

const kFolder = '/recipe';
const kMostDecoded = 8;
const kThumbnail = 176;

/** @type {import('quillon').Quillon} */
let quillon;
/** @type {{ text: string | null, recipe: import('quillon').Recipe | null }} */
let opened = { text: null, recipe: null };
/** @type {string[]} */
let problems = [];
const decoded = new Map();  // image id: {image, notes}, the last used at the end

function decodedImage({ id, name, bytes }) {
  let entry = decoded.get(id);
  if (!entry) entry = quillon.decode(bytes, name);
  decoded.delete(id);
  decoded.set(id, entry);
  for (const [oldest, { image }] of decoded) {
    if (decoded.size <= kMostDecoded) break;
    decoded.delete(oldest);
    image.dispose();
  }
  return entry;
}

/** @type {import('quillon').Recipe | null} */
let report = null;  // a recipe of its own, while its pages are written
const kReport = '/report';

// A page and what goes with it, taken out of the module: an empty file keeps its place for the index.
function takenOut(folder) {
  return quillon.files.list(`${kReport}/${folder}`).flatMap((name) => {
    const path = `${kReport}/${folder}/${name}`;
    const bytes = quillon.files.read(path);
    if (!bytes.length) return [];
    quillon.files.write(path, new Uint8Array());
    return [[`${folder}/${name}`, bytes]];
  });
}

let present = [];  // names of files
function setFiles(files) {
  for (const name of present) quillon.files.remove(`${kFolder}/${name}`);
  for (const [name, bytes] of files) quillon.files.write(`${kFolder}/${name}`, bytes);
  present = files.map(([name]) => name);
  opened.recipe?.dispose();
  opened = { text: null, recipe: null };
}

// Makes ready as much of the recipe as can be run; `problems` are those of all of it.
function open(recipe) {
  const text = JSON.stringify(recipe);
  if (text === opened.text) return opened.recipe;
  opened.recipe?.dispose();
  opened = { text, recipe: null };
  problems = quillon.Recipe.check(recipe);
  let part = runnable(recipe, problems);
  while (part) {
    try {
      opened.recipe = new quillon.Recipe(part, { folder: kFolder });
      break;
    } catch (error) {
      // A file that a step names is not there or is no template.
      problems.push(error.message);
      part = runnable(part, [error.message]);
    }
  }
  return opened.recipe;
}

function rgbaOf(image) {
  const rgba = image.getRgba();
  return { width: image.width, height: image.height, isColour: image instanceof quillon.ColourImage, rgba };
}

function thumbnailOf(image) {
  const factor = Math.max(image.width, image.height) / kThumbnail;
  const width = Math.max(1, Math.round(image.width / Math.max(1, factor)));
  const height = Math.max(1, Math.round(image.height / Math.max(1, factor)));
  const from = new Uint32Array(image.getRgba().buffer), to = new Uint32Array(width * height);
  for (let y = 0, i = 0; y < height; ++y) {
    const row = Math.floor(((y + 0.5) * image.height) / height) * image.width;
    for (let x = 0; x < width; ++x) to[i++] = from[row + Math.floor(((x + 0.5) * image.width) / width)];
  }
  return { width, height, rgba: new Uint8ClampedArray(to.buffer) };
}

const works = {
  table: () => quillon.table(),

  // The current image through the recipe, and one picture of it: that of the step named, of the
  // step's first input, or the image.
  look({ recipe, source, slot, ofInput }) {
    const ready = open(recipe);
    if (!source) return { problems };
    const { image, notes } = decodedImage(source);
    const inspection = ready ? ready.inspect(image, source.name) : null;
    const steps = inspection?.steps ?? [];
    const named = steps.find(({ name }) => name === slot);
    const pictureOf = (step) => (ready && step && step.kind.includes('picture') ? ready.picture(step.slot) : null);
    const copy = slot?.startsWith(kFilePrefix) ? fileAsImage(slot.slice(kFilePrefix.length)) : pictureOf(named);
    const shown = rgbaOf(copy ?? image);
    copy?.dispose();
    let input = null;
    if (ofInput) {
      const step = recipe.steps.find(({ name }) => name === ofInput);
      const first = [step?.input].flat()[0];
      const before = recipe.steps.find((other) => (other.output ?? other.name) === first);
      const picture = pictureOf(steps.find(({ name }) => name === before?.name));
      const grey = picture ?? (image instanceof quillon.ColourImage ? greyOf(image) : null);
      input = histogramOf(grey ?? image);
      grey?.dispose();
    }
    return { problems, inspection, notes, picture: shown, isImage: !copy, input };
  },

  // A step's result on a part of the image, reduced where that is asked for; things where it is not, for
  // their sizes mean nothing then. Null where the result has other positions than the image.
  preview({ recipe, source, slot, visible, mostPixels }) {
    const { image } = decodedImage(source);
    // What is visible may still be the image before: then it is all of this one.
    const { width, height } = image;
    const isSame = visible && width === visible.of.width && height === visible.of.height;
    const part = isSame ? visible : { left: 0, top: 0, width, height, isAll: true, of: { width, height } };
    const reduced = Math.ceil(Math.sqrt((part.width * part.height) / mostPixels));
    const piece = cropped(image, [part.left, part.top, part.width, part.height]);
    const small = reduced > 1 ? reducedImage(piece, reduced) : piece;
    try {
      const ready = open(recipe);
      const step = ready?.inspect(small).steps.find(({ name }) => name === slot);
      if (!step || step.frame !== 0) return null;
      const copy = step.things ? null : ready?.picture(step.slot) ?? null;
      const shown = rgbaOf(copy ?? small);
      copy?.dispose();
      if (shown.width !== small.width || shown.height !== small.height) return null;
      return { ...shown, part, reduced, things: reduced > 1 ? [] : step.things ?? [] };
    } finally {
      for (const made of new Set([piece, small])) made.dispose();
    }
  },

  // One image of the filmstrip.
  inspect({ recipe, source, wantsThumbnail }) {
    const ready = recipe ? open(recipe) : null;
    let image = null;
    try {
      ({ image } = decodedImage(source));
    } catch (error) {
      return { result: { verdict: 'unreadable', error: error.message, measurements: [] } };
    }
    const { line, verdict, error, measurements } =
      ready && !problems.length ? ready.inspect(image, source.name) : {};
    const result = verdict ? { line, verdict, error, measurements } : null;
    return { result, thumbnail: wantsThumbnail ? thumbnailOf(image) : null };
  },

  // A box of the current image as a template: the file, and what the finder thinks of it.
  teach({ source, box, by, maskedPixels }) {
    const pattern = cropped(decodedImage(source).image, box);
    const grey = pattern instanceof quillon.ColourImage ? greyOf(pattern) : pattern;
    const mask = maskedPixels ? quillon.GreyImage.from(pattern.width, pattern.height, maskedPixels) : null;
    try {
      const part = new quillon.Part(grey, { by, mask });
      const { points, pointCount, likeness, symmetry, doubts } = part;
      // A mask is kept in a model alone; without one the picture is the template.
      const file = mask ? part.save() : quillon.encodePng(pattern);
      part.dispose();
      return { points, pointCount, likeness, symmetry, doubts, file, ending: mask ? 'model' : 'png' };
    } finally {
      for (const image of new Set([pattern, grey, mask])) image?.dispose();
    }
  },

  // Pages of images, one after the other, then the index over them: files of a report.
  beginReport({ recipe }) {
    report?.dispose();
    report = new quillon.Recipe(recipe, { folder: kFolder });
    report.beginPages(kReport);
  },
  addToReport({ source }) {
    if (!report) throw new Error('the report was broken off');
    report.inspectBytes(source.bytes, source.name);
    report.addPage();
    return ['pages', 'thumbs'].flatMap(takenOut);
  },
  endReport() {
    if (!report) throw new Error('the report was broken off');
    report.endPages();
    report.dispose();
    report = null;
    const index = quillon.files.read(`${kReport}/index.html`);
    for (const folder of ['pages', 'thumbs']) {
      for (const name of quillon.files.list(`${kReport}/${folder}`)) quillon.files.remove(`${kReport}/${folder}/${name}`);
    }
    return [['index.html', index]];
  },

  // The inner corners of a board in one image, and the image's size.
  findBoard({ source, columns, rows }) {
    const { image } = decodedImage(source);
    return { corners: quillon.findBoard(image, columns, rows, source.name), width: image.width, height: image.height };
  },

  fitCamera: ({ views, width, height, square }) => quillon.fitCamera(views, { width, height, square }),

  sample({ name, options }) {
    const { image, truth } = quillon.sample(name, options);
    const bytes = quillon.encodePng(image);
    image.dispose();
    return { bytes, truth };
  },
};

// A template or a good board, as a picture; null for a model.
function fileAsImage(name) {
  try {
    return quillon.decode(quillon.files.read(`${kFolder}/${name}`), name).image;
  } catch {
    return null;
  }
}

function cropped(image, [left, top, width, height]) {
  const bytes = image instanceof quillon.ColourImage ? 3 : 1;
  const from = image.getPixels(), to = new Uint8Array(bytes * width * height);
  for (let y = 0; y < height; ++y) {
    const start = bytes * ((top + y) * image.width + left);
    to.set(from.subarray(start, start + bytes * width), bytes * y * width);
  }
  return image.constructor.from(width, height, to);
}

// Every so many columns and rows.
function reducedImage(image, by) {
  const bytes = image instanceof quillon.ColourImage ? 3 : 1;
  const width = Math.ceil(image.width / by), height = Math.ceil(image.height / by);
  const from = image.getPixels(), to = new Uint8Array(bytes * width * height);
  for (let y = 0, i = 0; y < height; ++y) {
    for (let x = 0; x < width; ++x) {
      const start = bytes * (y * by * image.width + x * by);
      for (let k = 0; k < bytes; ++k) to[i++] = from[start + k];
    }
  }
  return image.constructor.from(width, height, to);
}

function greyOf(image) {
  const grey = new quillon.GreyImage();
  quillon.IxColorToGray(image, grey);
  return grey;
}

function histogramOf(image) {
  const counts = new Uint32Array(256);
  for (const value of image.getPixels()) ++counts[value];
  return counts;
}

const ready = load().then((loaded) => (quillon = loaded));

self.onmessage = async ({ data: { id, work, given } }) => {
  try {
    await ready;
    const { files, source } = given;
    if (files) setFiles(files);
    const isThere = !source || source.bytes || (decoded.has(source.id) && work !== 'addToReport');
    if (!isThere) return self.postMessage({ id, wantsBytes: true });
    const answer = works[work](given);
    const moved = [answer?.picture, answer?.thumbnail].filter(Boolean).map(({ rgba }) => rgba.buffer);
    self.postMessage({ id, answer }, { transfer: moved });
  } catch (error) {
    // What the module throws is no Error, and leaves it in a state that nobody knows, as a trap does.
    const isFatal = !(error instanceof Error) || error instanceof WebAssembly.RuntimeError;
    self.postMessage({ id, error: String(error?.message ?? error), isFatal });
  }
};
