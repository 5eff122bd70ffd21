// The pictures of the golden digests and the digest itself, as tests/support/images.cpp and
// tests/golden draw and compute them; where rows need no padding.

export class Random {
  constructor(seed) {
    this.state = (Math.imul(seed, 2654435761) + 1) >>> 0;
  }
  next() {
    let s = this.state;
    s ^= s << 13;
    s ^= s >>> 17;
    s ^= s << 5;
    return (this.state = s >>> 0);
  }
  within(low, high) {
    return low + (this.next() % (high - low + 1));
  }
}

const kExtremes = [0, 255, 1, 254, 127, 128];
const kValues = {
  noise: (x, y, random) => random.next() >>> 24,
  binary: (x, y, random) => (random.next() >>> 31 ? 255 : 0),
  ramp: (x, y) => (3 * x + 7 * y) & 255,
  flat: () => 137,
  extremes: (x, y, random) =>
    kExtremes[(random.next() >>> 16) & 7 ? (Math.floor(x / 5) + y) % 6 : random.next() % 6],
};

// Rows of `bytes` bytes for each pixel.
export function draw(width, height, content, seed, bytes = 1) {
  const random = new Random(seed + 31 * width + height);
  const pixels = new Uint8Array(bytes * width * height);
  for (let i = 0, y = 0; y < height; ++y) {
    for (let x = 0; x < bytes * width; ++x) pixels[i++] = kValues[content](x, y, random);
  }
  return pixels;
}

export class Digest {
  #state = 0xcbf29ce484222325n;
  add(bytes) {
    let state = this.#state;
    for (const byte of bytes) state = ((state ^ BigInt(byte)) * 0x100000001b3n) & 0xffffffffffffffffn;
    this.#state = state;
    return this;
  }
  addPixels(image) {
    this.add(new Uint8Array(Int32Array.of(image.width, image.height, image.bpp).buffer));
    return image.hasPixels ? this.add(image.getPixels()) : this;
  }
  // Of a new grey image: what lies after its rows is 0.
  addStore(image) {
    this.add(new Uint8Array(Int32Array.of(image.width, image.height, image.bpp).buffer));
    if (!image.hasPixels) return this;
    const pixels = image.getPixels(), padding = new Uint8Array(image.stride - image.width);
    for (let y = 0; y < image.height; ++y) {
      this.add(pixels.subarray(y * image.width, (y + 1) * image.width)).add(padding);
    }
    return this;
  }
  get text() {
    return this.#state.toString(16).padStart(16, '0');
  }
}
