// The workbench in headless Chromium, and what a person does with it, for the tests beside: from
// file://, with the network watched. QUILLON_WORKBENCH is the page, QUILLON_DRIVER the folder of the
// driver, QUILLON_CLI, QUILLON_PYTHON and QUILLON_BUILD (for C++) what must give the same results; CHROMIUM names the browser.
import assert from 'node:assert/strict';
import { execFileSync, spawnSync } from 'node:child_process';
import { mkdirSync, mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import { tmpdir } from 'node:os';
import { basename, join } from 'node:path';
import { pathToFileURL } from 'node:url';

const { QUILLON_WORKBENCH, QUILLON_DRIVER, QUILLON_BUILD, QUILLON_CLI, QUILLON_PYTHON } = process.env;
const { chromium } = createRequire(pathToFileURL(join(QUILLON_DRIVER, 'here.js')))('playwright-core');
const kSomeFail = 3;  // the exit code of `quillon run`
export const address = pathToFileURL(QUILLON_WORKBENCH).href;

let browser, context, page;
export let folder;  // for files of this run
export const requests = [], failures = [];

export async function launch() {
  folder = mkdtempSync(join(tmpdir(), 'quillon-web-'));
  browser = await chromium.launch({ executablePath: process.env.CHROMIUM ?? '/usr/bin/chromium', args: ['--no-sandbox', '--use-fake-device-for-media-stream', '--use-fake-ui-for-media-stream'] });
  context = await browser.newContext({ viewport: { width: 1400, height: 900 }, acceptDownloads: true });
  await context.grantPermissions(['clipboard-read', 'clipboard-write']);
}
export async function end() {
  await browser?.close();
  rmSync(folder, { recursive: true, force: true });
}

// The page that the functions below work on from here on; `script` runs in it first.
export async function openPage(script) {
  page = await context.newPage();
  page.setDefaultTimeout(60_000);
  page.on('request', (request) => requests.push(request.url()));
  page.on('pageerror', (error) => failures.push(error.message));
  page.on('console', (message) => message.type() === 'error' && failures.push(message.text()));
  if (script) await page.addInitScript(script);
  await page.goto(address);
  await page.waitForFunction(() => document.body.dataset.ready);
  assert.equal(await page.evaluate(() => document.body.dataset.ready), 'yes');
  return page;
}

export const recipe = () => page.evaluate(() => structuredClone(workbench.state.recipe));
export const settled = () => page.waitForFunction(() => {
  const { state, strip, live } = workbench;
  return !strip.isBusy && !live.isBusy && state.images.every(({ isStale }) => !isStale);
});
export const verdicts = async () => {
  await settled();
  return page.evaluate(() => workbench.state.images.map(({ name, result }) => [name, result?.verdict ?? null]));
};
export const lines = async () => {
  await settled();
  return page.evaluate(() => workbench.state.images.map(({ result }) => result.line));
};
// Files as [name, text or bytes].
export async function openFiles(files) {
  const given = files.map(([name, content]) => [name, typeof content === 'string' ? content : Buffer.from(content).toString('base64'), typeof content === 'string']);
  await page.evaluate(async (all) => {
    const bytes = (text) => Uint8Array.from(atob(text), (character) => character.charCodeAt(0));
    await workbench.openFiles(all.map(([name, content, isText]) => new File([isText ? content : bytes(content)], name)));
  }, given);
}
export const openRecipe = (given, files = []) =>
  openFiles([['recipe.json', typeof given === 'string' ? given : JSON.stringify(given)], ...files]);
export const openFile = (path) => openFiles([[basename(path), readFileSync(path)]]);
export const lastNote = () => page.locator('#notes .note').last().innerText();

export async function removeImages() {
  while (await page.locator('#film li').count()) {
    await page.locator('#film li').first().click();
    await page.keyboard.press('Delete');
  }
}

export async function addStep(name) {
  await page.click('#add-step');
  await page.locator('dialog input[type=search]').pressSequentially(name);
  await page.keyboard.press('Enter');
}

// From a place of the picture to one of the window, after Fit.
export async function placesOfPicture() {
  await page.click('text=Fit');
  const canvas = await page.locator('#canvas canvas').boundingBox();
  const { width, height } = await page.evaluate(() => workbench.state.look.picture);
  const zoom = Math.min(canvas.width / width, canvas.height / height, 8);
  return (x, y) => [canvas.x + (canvas.width - width * zoom) / 2 + (x + 0.5) * zoom, canvas.y + (canvas.height - height * zoom) / 2 + (y + 0.5) * zoom];
}
export async function drag(from, to) {
  await page.mouse.move(...from);
  await page.mouse.down();
  await page.mouse.move(...to, { steps: 4 });
  await page.mouse.up();
}

// Files and folders, from where a person has them, let go over an element.
export async function dropPaths(paths, selector) {
  const { x, y, width, height } = await page.locator(selector).boundingBox();
  const session = await context.newCDPSession(page);
  for (const type of ['dragEnter', 'dragOver', 'drop']) {
    await session.send('Input.dispatchDragEvent', { type, x: x + width / 2, y: y + height / 2, data: { items: [], files: paths, dragOperationsMask: 1 } });
  }
  await session.detach();
}

// Teaches the open step a box of the picture. Tells what the finder says of it.
export async function teach(left, top, right, bottom) {
  await page.locator('button', { hasText: 'Teach from the picture' }).click();
  await page.waitForFunction(() => workbench.state.slot === null && !workbench.live.isBusy);
  const at = await placesOfPicture();
  await drag(at(left, top), at(right, bottom));
  await page.waitForSelector('dialog .judged p');
  return page.innerText('dialog .judged');
}

// Clicks in the open dialog and keeps what is downloaded.
export async function downloaded(label) {
  const [download] = await Promise.all([page.waitForEvent('download'), page.locator('dialog button', { hasText: label }).click()]);
  const path = join(folder, download.suggestedFilename());
  await download.saveAs(path);
  return path;
}
export async function saved(label) {
  await page.click('#save');
  const path = await downloaded(label);
  const texts = await page.locator('dialog .copy pre').allInnerTexts();
  await page.keyboard.press('Escape');
  return { path, texts };
}

// The program that reads what is saved: prints each image's record, and what the recipe says of the
// same picture as an array.
const kPython = `
import cv2, json, quillon.batch, sys
recipe = quillon.Recipe(sys.argv[1])
for record in quillon.batch.run(sys.argv[1], sys.argv[2:], objects=True):
    if record["image"].endswith(".png"):
        result = recipe.run(cv2.imread(record["image"], cv2.IMREAD_UNCHANGED))
        assert [result.verdict, result.measurements] == [record["verdict"], record["measurements"]], record
    print(json.dumps(record))`;

// What the page shows and what the command line and Python say of the recipe that it saves. Gives the
// folder with the recipe, its files and images/.
export async function assertSameElsewhere({ inCpp = false } = {}) {
  const shown = await lines();
  const { path, texts: [command, , cpp] } = await saved(/^Recipe .*zip/);
  const work = mkdtempSync(join(folder, 'run-'));
  execFileSync('unzip', ['-q', path, '-d', work]);
  const name = command.split(' ')[2];
  const images = await page.evaluate(() => Promise.all(workbench.state.images.map(({ name: file, blob }) => new Promise((resolve) => {
    const reader = new FileReader();
    reader.onload = () => resolve([file, reader.result.split(',')[1]]);
    reader.readAsDataURL(blob);
  }))));
  mkdirSync(join(work, 'images'));
  for (const [file, bytes] of images) writeFileSync(join(work, 'images', file), Buffer.from(bytes, 'base64'));
  const files = images.map(([file]) => file);
  if (QUILLON_CLI) {
    const run = (given, cwd) => {
      const { status, stdout, stderr } = spawnSync(QUILLON_CLI, given, { cwd, encoding: 'utf8', maxBuffer: 1 << 26 });
      assert.ok(status === 0 || status === kSomeFail, `${given.join(' ')}: ${stderr}`);
      return stdout;
    };
    assert.deepEqual(run(['run', join('..', name), ...files, '--json', '--objects'], join(work, 'images')).trimEnd().split('\n'), shown);
    // The command as the page writes it down.
    run(command.split(' ').slice(1), work);
    assert.equal(readFileSync(join(work, 'results', 'results.jsonl'), 'utf8').trimEnd().split('\n').length, shown.length + 1);
  }
  if (inCpp && QUILLON_BUILD) {
    writeFileSync(join(work, 'program.cpp'), cpp);
    execFileSync('g++', ['-std=c++20', '-Wall', '-Wextra', '-Werror', 'program.cpp', '-o', 'program', `-I${join(QUILLON_BUILD, '..', '..', 'include')}`,
      ...['kit/libquillon_kit.a', 'src/libquillon_finder.a'].map((file) => join(QUILLON_BUILD, file)), `-L${join(QUILLON_BUILD, 'src')}`, '-lquillon', '-pthread'], { cwd: work, stdio: 'inherit' });
    const printed = execFileSync('./program', images.map(([file]) => join('images', file)), { cwd: work, encoding: 'utf8', env: { LD_LIBRARY_PATH: join(QUILLON_BUILD, 'src') } });
    // Without the things that were found, which no limit is on.
    const wanted = shown.map((line) => line.replace(/,"objects":.*$/, '}').replace('"image":"', '"image":"images/'));
    assert.deepEqual(printed.trimEnd().split('\n'), wanted);
  }
  if (QUILLON_PYTHON) {
    const printed = execFileSync('/usr/bin/python3', ['-c', kPython, join('..', name), ...files], { cwd: join(work, 'images'), encoding: 'utf8', maxBuffer: 1 << 26, env: { ...process.env, PYTHONPATH: QUILLON_PYTHON } });
    assert.deepEqual(printed.trim().split('\n').map((line) => JSON.parse(line)), shown.map((line) => JSON.parse(line)));
  }
  return work;
}
