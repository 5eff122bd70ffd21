// The TypeScript declarations of the package, from the header's declarations and contracts.

const kNumbers = ['int', 'double', 'float', 'uint8_t'];
const kTypedArrays = { int: 'Int32Array', uint8_t: 'Uint8Array', float: 'Float32Array', double: 'Float64Array' };

function typeOf({ type, isConst }, records) {
  if (kNumbers.includes(type)) return 'number';
  if (type === 'bool') return 'boolean';
  const pointee = type.slice(0, -1);
  if (pointee === 'char') return 'string | null';
  if (records[pointee] && pointee !== 'GeoMatchTool') return `${pointee}[] | null`;
  const array = kTypedArrays[pointee];
  if (array) return `${array}${isConst ? ' | readonly number[]' : ''} | null`;
  return `${pointee} | null`;
}

function returnTypeOf(type) {
  if (type === 'void') return 'void';
  if (type === 'bool') return 'boolean';
  return type.endsWith('*') ? `${type.slice(0, -1)} | null` : 'number';
}

function commented(lines, indent) {
  if (!lines.length) return '';
  const body = lines.map((line) => `${indent} *${line ? ` ${line.replaceAll('*/', '* /')}` : ''}`);
  return `${indent}/**\n${body.join('\n')}\n${indent} */\n`;
}

function recordType(name, { fields }) {
  const lines = Object.entries(fields).map(([field, { type, count, isList }]) => {
    const listed = isList ? kTypedArrays[type === 'int32_t' ? 'int' : type] : 'number[]';
    return `  readonly ${field}: ${isList || count > 1 ? listed : 'number'};`;
  });
  return `export interface ${name} {\n${lines.join('\n')}\n}`;
}

// `kit` declares what is written by hand: images, handles, the kit.
export function typesOf(declared, records, kit) {
  const functions = declared.map(({ name, returns, takes, comment }) => {
    const parameters = takes.map((argument) => `${argument.name}: ${typeOf(argument, records)}`);
    return `${commented(comment, '  ')}  ${name}(${parameters.join(', ')}): ${returnTypeOf(returns)};`;
  });
  const types = Object.entries(records).map(([name, record]) => recordType(name, record));
  return `// Written from the library's headers and from the declarations of the kit.
${types.join('\n\n')}

${kit.trim()}

/** The exports of the library. Arrays are copied in, and what a call writes into them back. */
export interface Exports {
${functions.join('\n\n')}
}

export interface Quillon extends Exports, Kit {}

/** A module with a memory of its own. */
export function load(): Promise<Quillon>;
`;
}
