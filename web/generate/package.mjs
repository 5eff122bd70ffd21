// Makes the npm package: node generate/package.mjs MODULE-FOLDER OUT-FOLDER ESBUILD
// Sources of package/, the compiled module, and what is written from the library's headers.
import { execFileSync } from 'node:child_process';
import { cpSync, mkdirSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { readExports, readRecords, readSecondNames } from './header.mjs';
import { typesOf } from './types.mjs';

const here = new URL('..', import.meta.url);
const [moduleFolder, out, esbuild] = process.argv.slice(2);
const source = (path) => readFileSync(new URL(`../${path}`, here), 'utf8');

const version = source('VERSION').trim();
const declared = readExports(source('include/quillon/quillon.h'));
const entries = readSecondNames(source('src/exports/quillon.def'));
const records = readRecords(source('include/quillon/records.h'));

// The bindings' table: entry point and types of each export.
const signatures = {};
for (const { name, returns, takes } of declared) {
  signatures[name] = { entry: entries[name] ?? name, returns, takes };
}
const table = `// Written from the library's headers.
export const signatures = ${JSON.stringify(signatures, null, 1)};
export const records = ${JSON.stringify(records, null, 1)};
`;

rmSync(out, { recursive: true, force: true });
mkdirSync(out, { recursive: true });
cpSync(new URL('package', here), out, { recursive: true });
const description = JSON.parse(readFileSync(`${out}/package.json`, 'utf8'));
writeFileSync(`${out}/package.json`, JSON.stringify({ ...description, version }, null, 2));
writeFileSync(`${out}/exports.js`, table);
writeFileSync(`${out}/quillon.d.ts`, typesOf(declared, records, readFileSync(`${out}/kit.d.ts`, 'utf8')));
rmSync(`${out}/kit.d.ts`);
execFileSync(esbuild, ['--minify', '--format=esm', '--log-level=error', `${moduleFolder}/module.js`, `--outfile=${out}/module.js`]);
// The module is embedded: no bundler and no server has to know of another file.
const packed = readFileSync(`${moduleFolder}/module.wasm.gz`).toString('base64');
writeFileSync(`${out}/module-bytes.js`, `const packed = '${packed}';
export function moduleBytes() {
  return Uint8Array.from(atob(packed), (character) => character.charCodeAt(0));
}
`);
