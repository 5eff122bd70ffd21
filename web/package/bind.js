// The exports of the library as functions: each by its row in the table that is made from the
// header. Wrong types are refused by name; what numbers mean is the export's own contract.
import { records, signatures } from './exports.js';
import { Owned } from './memory.js';

const kDestroyers = {
  RLERegion: 'DestroyRLERegion',
  NccTool: 'IxDestroyNCCModel',
  GeoMatchTool: 'IxDestroyMatchModel',
};
const kPixelAlignment = 64;  // of the first pixel behind a bitmap's address
const kTypedArrays = { int: Int32Array, uint8_t: Uint8Array, float: Float32Array, double: Float64Array };

function readRecord(memory, name, address) {
  const { fields } = records[name];
  const record = {};
  for (const [field, { type, at, count, isList }] of Object.entries(fields)) {
    if (isList) {
      const [list] = memory.read(address + at, 'int', 1);
      record[field] = memory.read(list >>> 0, type, record.count);
    } else {
      const numbers = memory.read(address + at, type, count);
      record[field] = count > 1 ? [...numbers] : numbers[0];
    }
  }
  return record;
}

export function bindExports(memory, images) {
  const { module } = memory;

  class Handle extends Owned {
    constructor(address, destroyer) {
      super(address, () => module[`_${destroyer}`](address));
    }
  }
  const handles = {
    RLERegion: class RLERegion extends Handle {},
    NccTool: class NccTool extends Handle {},
    GeoMatchTool: class GeoMatchTool extends Handle {
      // The edge points that were taught; count 0 until then.
      get model() {
        const [model] = memory.read(this.address, 'int', 1);
        return readRecord(memory, 'GeoModelLevel', model >>> 0);
      }
    },
  };
  const classes = { ...images, ...handles };

  // What the module is given for an argument; `after` collects what is to be done when it returns.
  function given(take, { name, type, isConst }, value, after) {
    const refuse = (expected) => {
      throw new TypeError(`${name}: ${expected} is expected, not ${value === null ? 'null' : typeof value}`);
    };
    const pointee = type.endsWith('*') ? type.slice(0, -1) : null;
    if (!pointee) {
      if (type === 'bool') return typeof value === 'boolean' ? value : refuse('true or false');
      if (typeof value !== 'number') refuse('a number');
      if (type === 'int' && value !== (value | 0)) refuse('a whole number of 32 bits');
      return value;
    }
    if (value === null) return 0;
    if (classes[pointee]) {
      if (!(value instanceof classes[pointee])) refuse(`a ${pointee}`);
      return value.address;
    }
    if (pointee === 'char') {
      if (typeof value !== 'string' || value.includes('\0')) refuse('a text');
      return memory.copyText(take, value);
    }
    if (records[pointee]) {
      if (!Array.isArray(value)) refuse(`an array, as long as there are results,`);
      const { size } = records[pointee];
      const address = take(size * value.length);
      after.push(() => {
        for (let i = 0; i < value.length; ++i) value[i] = readRecord(memory, pointee, address + i * size);
      });
      return address;
    }
    const ArrayType = kTypedArrays[pointee];
    if (isConst ? !Array.isArray(value) && !(value instanceof ArrayType) : !(value instanceof ArrayType)) {
      refuse(isConst ? `an array or ${ArrayType.name}` : ArrayType.name);
    }
    const address = memory.copyIn(take, pointee, value);
    if (!isConst) after.push(() => value.set(memory.read(address, pointee, value.length)));
    return address;
  }

  function returned(type, value) {
    const pointee = type.slice(0, -1);
    if (type === 'void') return undefined;
    if (type === 'bool') return value !== 0;
    if (handles[pointee]) return value ? new handles[pointee](value, kDestroyers[pointee]) : null;
    return type === 'HBITMAP' ? value >>> 0 : value;
  }

  function bound(name, { entry, returns, takes }) {
    const call = module[`_${entry}`];
    if (Object.values(kDestroyers).includes(name)) return (handle) => handle?.dispose();
    return (...values) => {
      if (values.length !== takes.length) {
        throw new TypeError(`${name}: ${takes.length} arguments are expected, not ${values.length}`);
      }
      return memory.withSpace((take) => {
        const after = [];
        const args = takes.map((argument, i) => {
          try {
            return given(take, argument, values[i], after);
          } catch (error) {
            error.message = `${name}, ${error.message}`;
            throw error;
          }
        });
        const result = call(...args);
        for (const work of after) work();
        return returned(returns, result);
      });
    };
  }

  const functions = {};
  for (const [name, signature] of Object.entries(signatures)) functions[name] = bound(name, signature);
  // Of a bitmap that IxGetRegDisplay returned: rows from the bottom, each padded to 4 bytes.
  const bitmapBytes = (bitmap, size) =>
    memory.read(Math.ceil(bitmap / kPixelAlignment) * kPixelAlignment, 'uint8_t', size);
  return { ...handles, ...functions, bitmapBytes };
}
