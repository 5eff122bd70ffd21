// The module's memory. It moves when it grows, so no view of it is kept or handed out: everything
// is copied, in and out.

const kViews = {
  int: 'HEAP32', int32_t: 'HEAP32', uint8_t: 'HEAPU8', float: 'HEAPF32', double: 'HEAPF64',
};
const kArrays = {
  HEAP32: Int32Array, HEAPU8: Uint8Array, HEAPF32: Float32Array, HEAPF64: Float64Array,
};

// Ends in the module what JavaScript has forgotten.
const forgotten = new FinalizationRegistry((end) => end());

// Something that lives in the module: its address, until it is disposed.
export class Owned {
  #address;
  #end;

  // `end` must not hold this object.
  constructor(address, end) {
    this.#address = address;
    this.#end = end;
    forgotten.register(this, end, this);
  }
  get address() {
    if (!this.#address) throw new TypeError(`this ${this.constructor.name} was disposed`);
    return this.#address;
  }
  get isDisposed() {
    return !this.#address;
  }
  dispose() {
    if (!this.#address) return;
    forgotten.unregister(this);
    this.#address = 0;
    this.#end();
  }
  [Symbol.dispose ?? Symbol.for('Symbol.dispose')]() {
    this.dispose();
  }
}

export class Memory {
  constructor(module) {
    this.module = module;
    this.files = module.FS;
  }

  // Calls work with memory that is given back afterwards.
  withSpace(work) {
    const taken = [];
    const take = (size) => {
      const address = this.module._malloc(Math.max(size, 1));
      if (!address) throw new RangeError('there is not enough memory');
      taken.push(address);
      return address;
    };
    try {
      return work(take);
    } finally {
      for (const address of taken) this.module._free(address);
    }
  }

  write(address, type, numbers) {
    const view = this.module[kViews[type]];
    view.set(numbers, address / view.BYTES_PER_ELEMENT);
  }

  read(address, type, count) {
    const name = kViews[type];
    const at = address / kArrays[name].BYTES_PER_ELEMENT;
    return this.module[name].slice(at, at + count);
  }

  // A copy of numbers in memory that `take` gives.
  copyIn(take, type, numbers) {
    const address = take(numbers.length * kArrays[kViews[type]].BYTES_PER_ELEMENT);
    this.write(address, type, numbers);
    return address;
  }

  copyText(take, text) {
    return this.copyIn(take, 'uint8_t', new TextEncoder().encode(`${text}\0`));
  }

  // The bytes that a call of the kit has sent; `Failure` is thrown with the message of one that
  // failed.
  received(reply, Failure) {
    const [size, address, hasFailed] = this.read(reply, 'int', 3);
    const bytes = this.read(address >>> 0, 'uint8_t', size);
    if (hasFailed) throw new Failure(new TextDecoder().decode(bytes));
    return bytes;
  }
}
