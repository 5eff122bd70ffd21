// The page's side of the workers: promises for messages. A worker that died is begun anew.
import workerSource from 'worker-source';

const url = URL.createObjectURL(new Blob([workerSource], { type: 'text/javascript' }));

export const kStopped = 'stopped';
// The message of errors for what was asked of a worker that died.
export const kCrashed = 'the library stopped while it worked on this';

export class Engine {
  /** @type {any} */
  #worker = null;
  #waiting = new Map();
  #next = 0;
  filesSent = null;  // what this worker's memory holds

  constructor(onCrash = (/** @type {string} */ _message) => {}) {
    this.onCrash = onCrash;
    this.#begin();
  }

  #begin() {
    this.#worker = new Worker(url);
    this.filesSent = null;
    this.#worker.onmessage = ({ data: { id, answer, error, isFatal, wantsBytes } }) => {
      if (isFatal) return this.#crashed(error);
      const waiting = this.#waiting.get(id);
      if (wantsBytes) return waiting && this.#sendBytes(id, waiting);
      this.#waiting.delete(id);
      if (error !== undefined) waiting?.reject(new Error(error));
      else waiting?.resolve(answer);
    };
    this.#worker.onerror = (event) => this.#crashed(event.message);
  }

  #crashed(message) {
    this.stop(kCrashed);
    this.onCrash(message);
  }

  // An image that the worker has not decoded. The page reads it: from file://, the workers of Safari's
  // engine cannot read blobs.
  async #sendBytes(id, { work, given, reject }) {
    try {
      const bytes = new Uint8Array(await given.source.blob.arrayBuffer());
      if (this.#waiting.has(id)) this.#post(id, work, { ...given, files: undefined }, bytes);
    } catch (error) {
      this.#waiting.delete(id);
      reject(error);
    }
  }

  /** @type {(id: number, work: string, given: any, bytes?: Uint8Array) => void} */
  #post(id, work, given, bytes) {
    const { source } = given;
    const sent = source ? { ...given, source: { id: source.id, name: source.name, bytes } } : given;
    this.#worker.postMessage({ id, work, given: sent }, bytes ? [bytes.buffer] : []);
  }

  get isBusy() {
    return this.#waiting.size > 0;
  }

  ask(work, given = {}) {
    const id = this.#next++;
    return new Promise((resolve, reject) => {
      this.#post(id, work, given);
      this.#waiting.set(id, { resolve, reject, work, given });
    });
  }

  // The files of the recipe, where this worker does not have them yet.
  newFiles(files) {
    if (this.filesSent === files.version) return undefined;
    this.filesSent = files.version;
    return files.all;
  }

  // Ends what is being done, however long it would take, and begins anew.
  stop(reason = kStopped) {
    this.#worker.terminate();
    for (const { reject } of this.#waiting.values()) reject(new Error(reason));
    this.#waiting.clear();
    this.#begin();
  }
}
