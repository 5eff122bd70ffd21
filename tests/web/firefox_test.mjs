// The workbench in headless Firefox: it opens from file://, its task is solved by the keyboard, and what
// it saves gives the command line's lines. FIREFOX names the browser; the rest is as in page.mjs.
import assert from 'node:assert/strict';
import { execFileSync, spawnSync } from 'node:child_process';
import { existsSync, mkdirSync, mkdtempSync, readdirSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { after, before, test } from 'node:test';
import { pathToFileURL } from 'node:url';

const { FIREFOX, QUILLON_WORKBENCH, QUILLON_DRIVER, QUILLON_CLI } = process.env;
const modules = join(QUILLON_DRIVER, 'node_modules', 'puppeteer-core');
const { default: puppeteer } = await import(pathToFileURL(join(modules, 'lib', 'puppeteer', 'puppeteer-core.js')).href);

let browser, page, folder;
const failures = [], requests = [];
before(async () => {
  folder = mkdtempSync(join(tmpdir(), 'quillon-firefox-'));
  browser = await puppeteer.launch({
    browser: 'firefox', executablePath: FIREFOX, headless: true,
    extraPrefsFirefox: { 'browser.download.folderList': 2, 'browser.download.dir': folder, 'browser.download.useDownloadDir': true, 'browser.download.always_ask_before_handling_new_types': false },
  });
  page = await browser.newPage();
  await page.setViewport({ width: 1400, height: 900 });
  page.setDefaultTimeout(60_000);
  page.on('pageerror', (error) => failures.push(error.message));
  page.on('request', (request) => requests.push(request.url()));
});
after(async () => {
  await browser?.close();
  rmSync(folder, { recursive: true, force: true });
});
const settled = () => page.waitForFunction(() => {
  const { state, strip, live } = workbench;
  return !strip.isBusy && !live.isBusy && state.images.length === 6 && state.images.every(({ isStale }) => !isStale);
});
const click = (selector, text) => page.evaluate((where, words) => [...document.querySelectorAll(where)].find(({ textContent }) => textContent.includes(words)).click(), selector, text);

test('from file://: the task is solved, and the recipe that is saved is the command line’s', async () => {
  await page.goto(pathToFileURL(QUILLON_WORKBENCH).href);
  await page.waitForFunction(() => document.body.dataset.ready);
  assert.equal(await page.evaluate(() => document.body.dataset.ready), 'yes');
  await click('.hint button', 'Skip');
  await page.waitForSelector('[role=slider][aria-label=above]');
  await page.evaluate(() => document.querySelector('[role=slider][aria-label=above]').focus());
  for (let i = 0; i < 10; ++i) await page.keyboard.press('PageUp');
  await page.click('#add-step');
  await page.type('dialog input[type=search]', 'blobs');
  await page.keyboard.press('Enter');
  await page.waitForSelector('[aria-label="give min_area"]');
  await page.click('[aria-label="give min_area"]');
  const box = await page.waitForSelector('[data-key="1 min_area number"]');
  await box.click({ count: 3 });
  await page.keyboard.type('100');
  await page.waitForFunction(() => document.querySelector('#task').classList.contains('solved'));
  await settled();
  const shown = await page.evaluate(() => workbench.state.images.map(({ result }) => result.line));
  await page.click('#save');
  await click('dialog button', 'Recipe (.zip)');
  const path = join(folder, 'count-the-parts.zip');
  for (let i = 0; i < 100 && !(existsSync(path) && !readdirSync(folder).some((name) => name.endsWith('.part'))); ++i) await new Promise((done) => setTimeout(done, 100));
  execFileSync('unzip', ['-q', path, '-d', folder]);
  mkdirSync(join(folder, 'images'));
  const images = await page.evaluate(() => Promise.all(workbench.state.images.map(({ name, blob }) => new Promise((resolve) => {
    const reader = new FileReader();
    reader.onload = () => resolve([name, reader.result.split(',')[1]]);
    reader.readAsDataURL(blob);
  }))));
  for (const [name, bytes] of images) writeFileSync(join(folder, 'images', name), Buffer.from(bytes, 'base64'));
  if (!QUILLON_CLI) return;
  const { stdout } = spawnSync(QUILLON_CLI, ['run', '../count-the-parts.json', ...images.map(([name]) => name), '--json', '--objects'], { cwd: join(folder, 'images'), encoding: 'utf8', maxBuffer: 1 << 26 });
  assert.deepEqual(stdout.trimEnd().split('\n'), shown);
});

test('nothing was asked of any network, and nothing failed unseen', () => {
  assert.deepEqual(requests.filter((url) => !/^(file|blob|data|about):/.test(url)), []);
  assert.deepEqual(failures, []);
});
