// The kit: the table of operations, operations by name, recipes, the finder's teaching, image files
// and drawn samples. What cannot be done throws KitError, with the kit's own words.
import { Owned } from './memory.js';

export class KitError extends Error {
  name = 'KitError';
}

export function makeKit(memory, { GreyImage, ColourImage }) {
  const { module, files } = memory;

  // Calls an entry of the bindings; texts and bytes go through memory.
  function sent(name, ...values) {
    const reply = memory.withSpace((take) => module[name](...values.map((value) => {
      if (typeof value === 'string') return memory.copyText(take, value.replaceAll('\0', '\uFFFD'));
      if (value instanceof Uint8Array) return memory.copyIn(take, 'uint8_t', value);
      return value instanceof Owned ? value.address : value;
    })));
    return memory.received(reply, KitError);
  }
  const asked = (name, ...values) => JSON.parse(new TextDecoder().decode(sent(name, ...values)));
  const isColour = (image) => image instanceof ColourImage;
  const textOf = (recipe) => (typeof recipe === 'string' ? recipe : JSON.stringify(recipe));

  // Two images to fill, of which one is returned and the other ended.
  function filled(fill) {
    const grey = new GreyImage();
    const colour = new ColourImage();
    try {
      const more = fill(grey, colour);
      return { grey, colour, more };
    } catch (error) {
      grey.dispose();
      colour.dispose();
      throw error;
    }
  }
  function oneOf({ grey, colour }) {
    const [used, unused] = colour.hasPixels ? [colour, grey] : [grey, colour];
    unused.dispose();
    return used;
  }

  let known;
  // Operations with their arguments, what can be measured, formats.
  const table = () => (known ??= asked('_KitTable'));

  // An operation of the table on one image or two: { image } or { things }.
  function run(name, values, a, b = a) {
    const made = filled((grey, colour) =>
      asked('_KitRun', name, JSON.stringify(values ?? {}), a, isColour(a), b, isColour(b), grey, colour));
    const image = oneOf(made);
    if (!made.more.things) return { image };
    image.dispose();
    return { things: made.more.things };
  }

  // An image file's bytes: { image, notes }. A colour file gives a ColourImage.
  function decode(bytes, name = 'image', { depth = 0 } = {}) {
    const made = filled((grey, colour) => asked('_KitDecode', bytes, bytes.length, name, depth, grey, colour));
    return { image: oneOf(made), notes: made.more.notes };
  }

  const encodePng = (image) => sent('_KitEncodePng', image, isColour(image));

  // A recipe, ready for one image after the other. Files that it names lie in `folder`.
  class Recipe extends Owned {
    constructor(recipe, { folder = '/' } = {}) {
      const { inspection } = asked('_KitOpen', textOf(recipe), folder);
      super(inspection, () => module._KitClose(inspection));
    }
    // All that is wrong with a recipe; empty: nothing.
    static check(recipe) {
      return asked('_KitCheck', textOf(recipe));
    }
    // Verdict, measurements, what each step found and how long it took.
    inspect(image, name = 'image') {
      return asked('_KitInspect', this, image, isColour(image), name);
    }
    inspectFile(path) {
      return asked('_KitInspectFile', this, path);
    }
    // The bytes of an image file, whatever they are.
    inspectBytes(bytes, name) {
      return asked('_KitInspectBytes', this, bytes, bytes.length, name);
    }
    // Pages in a folder of the module's files: addPage after each image, endPages writes the index.
    beginPages(to) {
      asked('_KitBeginPages', this, to);
    }
    addPage() {
      return asked('_KitAddPage', this).hasPictures;
    }
    endPages() {
      asked('_KitEndPages', this);
    }
    // A copy of what a slot holds since the last image: 0 the image, 1 it in colour, then the steps
    // (`slot` of inspect's answer). Null where it holds no picture.
    picture(slot) {
      for (const Image of [GreyImage, ColourImage]) {
        const address = module._KitPicture(this.address, slot, Image.isColour);
        if (!address) continue;
        const copy = new Image();
        module._ImageCopy(copy.address, Image.isColour, address);
        return copy;
      }
      return null;
    }
  }

  // A template as the finder was taught it, and what teaching thinks of it.
  class Part extends Owned {
    constructor(pattern, { by = 'edges', mask = null, name = 'template' } = {}) {
      const { part, ...judgement } = asked('_KitTeach', pattern, mask ?? 0, name, by);
      super(part, () => module._KitForgetPart(part));
      Object.assign(this, judgement);
    }
    // As a model file, which recipes and `quillon find` take in place of a picture.
    save() {
      const path = '/part.model';
      asked('_KitSavePart', this, path);
      const bytes = files.readFile(path);
      files.unlink(path);
      return bytes;
    }
  }

  // The inner corners of a chessboard, [column, row, x, y] each; throws where too few are seen.
  const findBoard = (image, columns, rows, name = 'image') =>
    asked('_KitFindBoard', image, isColour(image), name, columns, rows).corners;

  // A camera and its lens, from views { name, corners } of one board in pictures of one size. `file` is
  // what `quillon calibrate` writes, and what recipes take. The first view's board lies where is
  // measured.
  const fitCamera = (views, { width, height, square }) =>
    asked('_KitFitCamera', JSON.stringify({ views, width, height, square }));

  // A drawn image and what is on it: 'tray', 'bracket', 'board', 'tested board', 'dot grid'.
  function sample(name, { seed = 1, width = 1024, height = 768 } = {}) {
    const made = filled((grey, colour) => asked('_KitSample', name, seed, width, height, grey, colour));
    return { image: oneOf(made), truth: made.more };
  }

  // The module's own files, which recipes and calibrations read and write.
  const folder = {
    write(path, bytes) {
      const parent = path.slice(0, path.lastIndexOf('/'));
      if (parent) files.mkdirTree(parent);
      files.writeFile(path, bytes);
    },
    read: (path) => files.readFile(path),
    remove: (path) => files.unlink(path),
    list: (path) => files.readdir(path).filter((name) => name !== '.' && name !== '..'),
    exists: (path) => files.analyzePath(path).exists,
  };

  return { table, run, decode, encodePng, sample, findBoard, fitCamera, Recipe, Part, KitError, files: folder };
}
