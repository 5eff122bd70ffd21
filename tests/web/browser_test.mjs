// The workbench in Firefox and in WebKit: it opens from file://, its task is solved by the keyboard, a
// template is taught by the mouse, and what it saves gives the command line's lines. FIREFOX or WEBKIT
// names the browser (browsers.mjs); the rest is as in page.mjs.
import assert from 'node:assert/strict';
import { execFileSync, spawnSync } from 'node:child_process';
import { existsSync, mkdirSync, mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { after, before, test } from 'node:test';
import { pathToFileURL } from 'node:url';
import { eventually, openBrowser } from './browsers.mjs';

const { QUILLON_WORKBENCH, QUILLON_CLI } = process.env;
const address = pathToFileURL(QUILLON_WORKBENCH).href;

let page, folder;
before(async () => {
  folder = mkdtempSync(join(tmpdir(), 'quillon-browser-'));
  page = await openBrowser(folder);
});
after(async () => {
  await page?.end();
  rmSync(folder, { recursive: true, force: true });
});
const until = (work, ...given) => eventually(() => page.evaluate(work, ...given));
const begin = async () => {
  await page.goto(address);
  assert.equal(await until(() => document.body.dataset.ready), 'yes');
};
const settled = () => until(() => {
  const { state, strip, live } = workbench;
  return !strip.isBusy && !live.isBusy && state.images.length === 6 && state.images.every(({ isStale }) => !isStale);
});
const isThere = (selector) => until((where) => Boolean(document.querySelector(where)), selector);
const click = (selector, text) => page.evaluate((where, words) => [...document.querySelectorAll(where)].find(({ textContent }) => textContent.includes(words)).click(), selector, text);
const addStep = async (name) => {
  await page.click('#add-step');
  await page.type(name);
  await page.press('Enter');
};

// Saves the recipe, and runs it by the command line over the same images.
async function assertSameElsewhere() {
  await settled();
  const shown = await page.evaluate(() => workbench.state.images.map(({ result }) => result.line));
  await page.click('#save');
  await click('dialog button', 'Recipe');
  // Written when it has its end.
  const path = join(folder, 'count-the-parts.zip');
  await eventually(() => existsSync(path) && readFileSync(path).includes('PK\x05\x06'));
  await page.press('Escape');
  const work = mkdtempSync(join(folder, 'run-'));
  execFileSync('unzip', ['-q', path, '-d', work]);
  rmSync(path);
  mkdirSync(join(work, 'images'));
  const images = await page.evaluate(() => Promise.all(workbench.state.images.map(({ name, blob }) => new Promise((resolve) => {
    const reader = new FileReader();
    reader.onload = () => resolve([name, reader.result.split(',')[1]]);
    reader.readAsDataURL(blob);
  }))));
  for (const [name, bytes] of images) writeFileSync(join(work, 'images', name), Buffer.from(bytes, 'base64'));
  if (!QUILLON_CLI) return;
  const { stdout } = spawnSync(QUILLON_CLI, ['run', '../count-the-parts.json', ...images.map(([name]) => name), '--json', '--objects'], { cwd: join(work, 'images'), encoding: 'utf8', maxBuffer: 1 << 26 });
  assert.deepEqual(stdout.trimEnd().split('\n'), shown);
}

test('from file://: the task is solved, and the recipe that is saved is the command line’s', async () => {
  await begin();
  await click('.hint button', 'Skip');
  await isThere('[role=slider][aria-label=above]');
  await page.evaluate(() => document.querySelector('[role=slider][aria-label=above]').focus());
  for (let i = 0; i < 10; ++i) await page.press('PageUp');
  await addStep('blobs');
  await isThere('[aria-label="give min_area"]');
  await page.click('[aria-label="give min_area"]');
  await isThere('[data-key="1 min_area number"]');
  await page.evaluate(() => document.querySelector('[data-key="1 min_area number"]').select());
  await page.type('100');
  await until(() => document.querySelector('#task').classList.contains('solved'));
  await assertSameElsewhere();
});

test('a box that is dragged over the picture becomes a template, and its part is found', async () => {
  await addStep('find');
  await click('button', 'Teach from the picture');
  await until(() => workbench.state.slot === null && !workbench.live.isBusy);
  await click('button', 'Fit');
  const [part, from, to] = await page.evaluate(() => {
    const one = workbench.state.images[0].truth.find(({ kind }) => /bracket|gear|plate/.test(kind)) ?? workbench.state.images[0].truth[0];
    const { left, top, width, height } = document.querySelector('#canvas canvas').getBoundingClientRect();
    const { picture } = workbench.state.look;
    const zoom = Math.min(width / picture.width, height / picture.height, 8);
    const at = (x, y) => [left + (width - picture.width * zoom) / 2 + (x + 0.5) * zoom, top + (height - picture.height * zoom) / 2 + (y + 0.5) * zoom];
    return [one, at(one.x - 50, one.y - 50), at(one.x + 50, one.y + 50)];
  });
  await page.drag(from, to);
  assert.match(await until(() => document.querySelector('dialog .judged p')?.innerText), /edge points/);
  await click('dialog button', 'Use this template');
  await settled();
  const found = await page.evaluate(() => workbench.state.look.inspection.steps[2].things);
  assert.ok(found.some(({ x, y }) => Math.abs(x - part.x) < 8 && Math.abs(y - part.y) < 8), JSON.stringify(found));
  await assertSameElsewhere();
});

test('a page that is opened again has the recipe and its files', async () => {
  const kept = await page.evaluate(() => JSON.stringify(workbench.state.recipe));
  await begin();
  assert.equal(await page.evaluate(() => JSON.stringify(workbench.state.recipe)), kept);
  assert.deepEqual(await page.evaluate(() => [...workbench.state.files.keys()]), ['find.png']);
  assert.deepEqual(await until(() => workbench.state.look?.problems), []);
});

test('nothing was asked of any network, and nothing failed unseen', async () => {
  assert.deepEqual(await page.requests(), []);
  assert.deepEqual(await page.failures(), []);
});
