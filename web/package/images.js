// Images: the objects that exports work on. Pixels go in and come out as packed rows from the top.
import { Owned } from './memory.js';

// Where the fields are that JavaScript reads, in a module of 32 bits.
const kBits = 8, kWidth = 16;

export function makeImages(memory) {
  const { module } = memory;

  class Image extends Owned {
    constructor() {
      const isColour = new.target.isColour;
      const address = module._ImageNew(isColour);
      super(address, () => module._ImageDelete(address, isColour));
    }

    // An image of this size with these pixels, rows from the top without gaps.
    static from(width, height, pixels) {
      const image = new this();
      image.create(width, height);
      if (!image.hasPixels) {
        image.dispose();
        throw new RangeError(`there is no memory for an image of ${width} x ${height} pixels`);
      }
      image.setPixels(pixels);
      return image;
    }

    // All zero.
    create(width, height) {
      module._ImageCreate(this.address, this.constructor.isColour, width, height);
    }
    // The same at a depth of 1 to 32 bits; colour images have 24.
    allocate(bpp, width, height) {
      module._ImageAllocate(this.address, this.constructor.isColour, bpp, width, height);
    }
    copyFrom(image) {
      if (image.constructor !== this.constructor) throw new TypeError('an image of the same kind is needed');
      module._ImageCopy(this.address, this.constructor.isColour, image.address);
    }

    #field(index) {
      return module.HEAP32[(this.address + kWidth) / 4 + index];
    }
    get width() { return this.#field(0); }
    get height() { return this.#field(1); }
    get bpp() { return this.#field(2); }
    get stride() { return this.#field(3); }
    // An image whose memory could not be had keeps its size, without pixels.
    get hasPixels() {
      return module.HEAP32[(this.address + kBits) / 4] !== 0;
    }

    #copy(size, copy) {
      if (!this.hasPixels) throw new RangeError('this image has no pixels');
      return memory.withSpace((take) => copy(take(size)));
    }
    #rowBytes() {
      return Math.ceil((this.width * this.bpp) / 8);
    }
    // Grey values, or blue, green and red in turn.
    getPixels() {
      const row = this.#rowBytes();
      return this.#copy(row * this.height, (space) => {
        module._ImageGetRows(this.address, this.constructor.isColour, row, space);
        return memory.read(space, 'uint8_t', row * this.height);
      });
    }
    setPixels(pixels) {
      const row = this.#rowBytes();
      if (pixels.length !== row * this.height) {
        throw new RangeError(`${pixels.length} bytes are given; ${this.width} x ${this.height} pixels need ${row * this.height}`);
      }
      this.#copy(pixels.length, (space) => {
        memory.write(space, 'uint8_t', pixels);
        module._ImageSetRows(this.address, this.constructor.isColour, row, space);
      });
    }
    // Red, green, blue and 255, as a canvas takes them.
    getRgba() {
      const size = 4 * this.width * this.height;
      return this.#copy(size, (space) => {
        module._ImageGetRgba(this.address, this.constructor.isColour, space);
        return new Uint8ClampedArray(memory.read(space, 'uint8_t', size).buffer);
      });
    }
  }

  return {
    GreyImage: class GreyImage extends Image { static isColour = false; },
    ColourImage: class ColourImage extends Image { static isColour = true; },
  };
}
