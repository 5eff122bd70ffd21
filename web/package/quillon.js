// Quillon in JavaScript: images, all exports of the library, and the kit.
//
//   import { load } from 'quillon';
//   const quillon = await load();
//   using image = quillon.GreyImage.from(width, height, bytes);
//   quillon.IxSobel(image, image);
//
// Each call of load makes a module with a memory of its own. Objects live in that memory: `using`
// or dispose() ends them, and the garbage collector does for those that are forgotten.
import { bindExports } from './bind.js';
import { makeImages } from './images.js';
import { makeKit } from './kit.js';
import { Memory } from './memory.js';
import createModule from './module.js';
import { moduleBytes } from './module-bytes.js';

export async function load() {
  // Of a response, not of a blob: from file://, Safari's engine reads no blob in a worker.
  const packed = new Response(moduleBytes()).body;
  const binary = await new Response(packed.pipeThrough(new DecompressionStream('gzip'))).arrayBuffer();
  const module = await createModule({ wasmBinary: binary, noInitialRun: true });
  const memory = new Memory(module);
  const images = makeImages(memory);
  return { ...images, ...bindExports(memory, images), ...makeKit(memory, images) };
}
