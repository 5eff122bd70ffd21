// Zip files: written without compression, for what goes in is compressed already; read with both
// ways that such files use.

const kLocal = 0x04034b50, kEntry = 0x02014b50, kEnd = 0x06054b50;
const kUtf8 = 0x0800, kMostBytes = 1 << 30;

const kTable = Uint32Array.from({ length: 256 }, (_, n) => {
  for (let bit = 0; bit < 8; ++bit) n = n & 1 ? (n >>> 1) ^ 0xedb88320 : n >>> 1;
  return n;
});
function crc32(bytes) {
  let crc = 0xffffffff;
  for (const byte of bytes) crc = kTable[(crc ^ byte) & 255] ^ (crc >>> 8);
  return (crc ^ 0xffffffff) >>> 0;
}

// Numbers of 2 and 4 bytes, as [size, value] pairs, least byte first.
function fields(...pairs) {
  const bytes = new Uint8Array(pairs.reduce((sum, [size]) => sum + size, 0));
  const view = new DataView(bytes.buffer);
  let at = 0;
  for (const [size, value] of pairs) {
    if (size === 2) view.setUint16(at, value, true);
    else view.setUint32(at, value, true);
    at += size;
  }
  return bytes;
}

// [[name, bytes]] as one file.
export function zip(files) {
  const parts = [], entries = [];
  let at = 0;
  for (const [name, bytes] of files) {
    const text = new TextEncoder().encode(name);
    const shared = [[2, 20], [2, kUtf8], [2, 0], [2, 0], [2, 0x21], [4, crc32(bytes)], [4, bytes.length], [4, bytes.length], [2, text.length], [2, 0]];
    const head = fields([4, kLocal], ...shared);
    entries.push(fields([4, kEntry], [2, 20], ...shared, [2, 0], [2, 0], [2, 0], [4, 0], [4, at]), text);
    parts.push(head, text, bytes);
    at += head.length + text.length + bytes.length;
  }
  const size = entries.reduce((sum, { length }) => sum + length, 0);
  const end = fields([4, kEnd], [2, 0], [2, 0], [2, files.length], [2, files.length], [4, size], [4, at], [2, 0]);
  return new Blob([...parts, ...entries, end], { type: 'application/zip' });
}

async function inflated(bytes, size) {
  const reader = new Blob([bytes]).stream().pipeThrough(new DecompressionStream('deflate-raw')).getReader();
  const out = new Uint8Array(size);
  let at = 0;
  for (;;) {
    const { done, value } = await reader.read();
    if (done) break;
    if (at + value.length > size) throw new Error('it holds more than it says');
    out.set(value, at);
    at += value.length;
  }
  return out;
}

// The files in a zip: [[name, bytes]]. Throws Error with a sentence.
export async function unzip(bytes) {
  const view = new DataView(bytes.buffer, bytes.byteOffset, bytes.byteLength);
  let end = bytes.length - 22;
  while (end >= 0 && view.getUint32(end, true) !== kEnd) --end;
  if (end < 0) throw new Error('this is no zip file');
  const count = view.getUint16(end + 10, true);
  const files = [];
  let at = view.getUint32(end + 16, true), total = 0;
  try {
    for (let i = 0; i < count; ++i) {
      if (view.getUint32(at, true) !== kEntry) throw new Error('its list of files is damaged');
      const [method, packed, size, nameLength, extra, comment] =
        [[10, 2], [20, 4], [24, 4], [28, 2], [30, 2], [32, 2]].map(([offset, length]) => (length === 2 ? view.getUint16(at + offset, true) : view.getUint32(at + offset, true)));
      const start = view.getUint32(at + 42, true);
      const name = new TextDecoder().decode(bytes.subarray(at + 46, at + 46 + nameLength));
      const from = start + 30 + view.getUint16(start + 26, true) + view.getUint16(start + 28, true);
      const content = bytes.subarray(from, from + packed);
      total += size;
      if (total > kMostBytes) throw new Error('it holds more than a gigabyte');
      if (content.length !== packed) throw new Error(`'${name}' is cut short`);
      if (!name.endsWith('/')) {
        if (method !== 0 && method !== 8) throw new Error(`'${name}' is packed in a way that is not read`);
        const file = method === 8 ? await inflated(content, size) : content.slice();
        if (crc32(file) !== view.getUint32(at + 16, true)) throw new Error(`'${name}' is damaged`);
        files.push([name, file]);
      }
      at += 46 + nameLength + extra + comment;
    }
  } catch (error) {
    throw error instanceof RangeError || error instanceof TypeError ? new Error('it is damaged') : error;
  }
  return files;
}
