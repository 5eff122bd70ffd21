// Reads the public headers: every export with its types and its contract, and the layout of the
// records that cross the boundary. From these come the package's bindings and its types.

const kSizes = { int32_t: 4, uint8_t: 1, float: 4, double: 8, '*': 4 };

// The comment lines right above a place in the text, without their slashes.
function commentAbove(lines, at) {
  const comment = [];
  for (let i = at - 1; i >= 0 && /^\s*\/\//.test(lines[i]) && !/^\/\/ ----/.test(lines[i]); --i) {
    comment.unshift(lines[i].replace(/^\s*\/\/ ?/, ''));
  }
  return comment;
}

function headingAbove(lines, at) {
  for (let i = at - 1; i >= 0; --i) {
    const found = lines[i].match(/^\/\/ ---- (.*?) -+$/);
    if (found) return found[1];
  }
  return '';
}

function argumentOf(text) {
  const [, type, name] = text.trim().match(/^(.*?)\s*(\w+)$/);
  return { name, type: type.replace(/^const /, ''), isConst: type.startsWith('const ') };
}

// [{name, returns, takes: [{name, type, isConst}], comment, heading}], in the order of the header.
export function readExports(header) {
  const lines = header.split('\n');
  const all = [];
  let comment = [];
  lines.forEach((line, at) => {
    if (!line.startsWith('QUILLON_API ')) return;
    let text = line;
    for (let next = at + 1; !text.includes(';'); ++next) text += ' ' + lines[next].trim();
    const [, returns, name, list] = text.match(/^QUILLON_API (.+?) QUILLON_CALL (\w+)\((.*)\);/);
    // Declarations that follow one another share the comment above the first.
    const own = commentAbove(lines, at);
    if (own.length) comment = own;
    all.push({
      name,
      returns,
      takes: list ? list.split(',').map(argumentOf) : [],
      comment,
      heading: headingAbove(lines, at),
    });
  });
  return all;
}

// {second name: entry point}
export function readSecondNames(def) {
  return Object.fromEntries([...def.matchAll(/^ {2}(\w+) *= *(\w+)$/gm)].map((found) => found.slice(1)));
}

// {record: {size, fields: {name: {type, at, count, isList}}}}. A list is behind a pointer, and as
// long as the record's own count.
export function readRecords(header) {
  const records = {};
  for (const [, aligned, name, body] of header.matchAll(/struct (alignas\(8\) )?(\w+) \{([^}]*)\};/g)) {
    const fields = {};
    let at = 0;
    let widest = aligned ? 8 : 1;
    for (const [, type, names] of body.replace(/\/\/.*/g, '').matchAll(/^\s*(?:const )?(\w+) ([^;]+);/gm)) {
      if (!(type in kSizes)) continue;  // what hosts see through another type
      for (const declared of names.split(',')) {
        const [, star, field, , count] = declared.match(/(\*?)(\w+)(\[(\d+)\])?/);
        const size = kSizes[star || type];
        at = Math.ceil(at / size) * size;
        fields[field] = { type, at, count: Number(count ?? 1), isList: Boolean(star) };
        at += size * Number(count ?? 1);
        widest = Math.max(widest, size);
      }
    }
    if (Object.keys(fields).length) records[name] = { size: Math.ceil(at / widest) * widest, fields };
  }
  return records;
}
