// Makes the page: node generate/workbench.mjs PACKAGE-FOLDER OUT.html ESBUILD
// Scripts are bundled by esbuild and written into the page with the style; the policy in its head names
// both by their digests, so that nothing else runs in it.
import { execFileSync } from 'node:child_process';
import { createHash } from 'node:crypto';
import { mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join, resolve } from 'node:path';
import { fileURLToPath } from 'node:url';
import { recipeOfGuide } from './guide.mjs';

const [packageFolder, out, esbuild] = process.argv.slice(2);
const source = (name) => fileURLToPath(new URL(`../workbench/${name}`, import.meta.url));
const work = mkdtempSync(join(tmpdir(), 'quillon-'));

// esbuild takes a package by an alias file, the worker's text and the guide's recipe as modules.
const bundle = (entry, more = []) => execFileSync(esbuild, [
  entry, '--bundle', '--minify', '--format=iife', '--target=es2022', '--charset=utf8', '--log-level=error', '--loader:.md=text', ...more,
], { encoding: 'utf8', maxBuffer: 1 << 26 });

try {
  const aliases = (text) => text.replaceAll(`'quillon'`, JSON.stringify(resolve(packageFolder, 'quillon.js')))
    .replaceAll(`'./runnable.js'`, JSON.stringify(source('runnable.js')));
  const worker = join(work, 'worker.js');
  writeFileSync(worker, aliases(readFileSync(source('worker.js'), 'utf8')));
  const workerScript = bundle(worker);
  const workerModule = join(work, 'worker-source.js');
  writeFileSync(workerModule, `export default ${JSON.stringify(workerScript)};`);
  const guideModule = join(work, 'guide-recipe.json');
  writeFileSync(guideModule, JSON.stringify(recipeOfGuide()));
  const script = bundle(source('main.js'), [`--alias:worker-source=${workerModule}`, `--alias:guide-recipe=${guideModule}`]).replaceAll('</script', '<\\/script');
  const style = readFileSync(source('style.css'), 'utf8');
  const digest = (text) => `sha256-${createHash('sha256').update(text, 'utf8').digest('base64')}`;
  const parts = { SCRIPT_HASH: digest(script), STYLE_HASH: digest(style), SCRIPT: script, STYLE: style };
  const page = readFileSync(source('page.html'), 'utf8').replaceAll(/@([A-Z_]+)@/g, (_, name) => parts[name]);
  writeFileSync(out, page);
} finally {
  rmSync(work, { recursive: true });
}
