// The workbench in headless Chromium, as a person uses it: from file://, with the network watched.
// QUILLON_WORKBENCH is the page, QUILLON_DRIVER the folder of the driver, QUILLON_CLI the command
// line that must give the same results; CHROMIUM names the browser.
import assert from 'node:assert/strict';
import { execFileSync, spawnSync } from 'node:child_process';
import { mkdirSync, mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { after, before, test } from 'node:test';
import { pathToFileURL } from 'node:url';

const { QUILLON_WORKBENCH, QUILLON_DRIVER, QUILLON_CLI, QUILLON_PYTHON } = process.env;
const { chromium } = createRequire(pathToFileURL(join(QUILLON_DRIVER, 'here.js')))('playwright-core');
const kSomeFail = 3;  // the exit code of `quillon run`
const address = pathToFileURL(QUILLON_WORKBENCH).href;

let browser, context, page, folder;
const requests = [], failures = [];

async function openPage(options = {}) {
  const opened = await context.newPage(options);
  opened.setDefaultTimeout(60_000);
  opened.on('request', (request) => requests.push(request.url()));
  opened.on('pageerror', (error) => failures.push(error.message));
  opened.on('console', (message) => message.type() === 'error' && failures.push(message.text()));
  await opened.goto(address);
  await opened.waitForFunction(() => document.body.dataset.ready);
  assert.equal(await opened.evaluate(() => document.body.dataset.ready), 'yes');
  return opened;
}

before(async () => {
  folder = mkdtempSync(join(tmpdir(), 'quillon-web-'));
  browser = await chromium.launch({ executablePath: process.env.CHROMIUM ?? '/usr/bin/chromium', args: ['--no-sandbox'] });
  context = await browser.newContext({ viewport: { width: 1400, height: 900 }, acceptDownloads: true });
  page = await openPage();
});
after(async () => {
  await browser?.close();
  rmSync(folder, { recursive: true, force: true });
});

const recipe = () => page.evaluate(() => structuredClone(workbench.state.recipe));
const settled = () => page.waitForFunction(() => {
  const { state, strip, live } = workbench;
  return !strip.isBusy && !live.isBusy && state.images.every(({ isStale }) => !isStale);
});
const verdicts = async () => {
  await settled();
  return page.evaluate(() => workbench.state.images.map(({ name, result }) => [name, result?.verdict ?? null]));
};
const lines = async () => {
  await settled();
  return page.evaluate(() => workbench.state.images.map(({ result }) => result.line));
};
const openRecipe = async (text, files = []) => {
  const given = [['recipe.json', typeof text === 'string' ? text : JSON.stringify(text)], ...files];
  await page.evaluate(async (all) => {
    await workbench.openFiles(all.map(([name, content]) => new File([typeof content === 'string' ? content : new Uint8Array(content)], name)));
  }, given);
};
const lastNote = () => page.locator('#notes .note').last().innerText();
async function addStep(name) {
  await page.click('#add-step');
  await page.fill('dialog input[type=search]', name);
  await page.locator('dialog .operations button').filter({ has: page.getByText(name, { exact: true }) }).first().click();
}
async function saved(label) {
  await page.click('#save');
  const [download] = await Promise.all([page.waitForEvent('download'), page.locator('dialog button', { hasText: label }).click()]);
  const path = join(folder, download.suggestedFilename());
  await download.saveAs(path);
  saved.command = await page.locator('dialog .copy pre').first().innerText();
  await page.keyboard.press('Escape');
  return path;
}

// What the page shows and what the command line and Python say of the recipe that it saves.
async function assertSameElsewhere() {
  const shown = await lines();
  const path = await saved('.zip');
  const work = mkdtempSync(join(folder, 'run-'));
  execFileSync('unzip', ['-q', path, '-d', work]);
  const [name] = execFileSync('ls', [work], { encoding: 'utf8' }).split('\n').filter((file) => file.endsWith('.json'));
  const images = await page.evaluate(() => Promise.all(workbench.state.images.map(({ name: file, blob }) => new Promise((resolve) => {
    const reader = new FileReader();
    reader.onload = () => resolve([file, reader.result.split(',')[1]]);
    reader.readAsDataURL(blob);
  }))));
  mkdirSync(join(work, 'images'));
  for (const [file, bytes] of images) writeFileSync(join(work, 'images', file), Buffer.from(bytes, 'base64'));
  const files = images.map(([file]) => file);
  if (QUILLON_CLI) {
    let printed;
    try {
      printed = execFileSync(QUILLON_CLI, ['run', join('..', name), ...files, '--json', '--objects'], { cwd: join(work, 'images'), encoding: 'utf8', maxBuffer: 1 << 26, stdio: ['ignore', 'pipe', 'pipe'] });
    } catch (error) {
      if (error.status !== kSomeFail) throw error;
      printed = error.stdout;
    }
    assert.deepEqual(printed.trimEnd().split('\n'), shown);
    // The command as the page writes it down.
    const status = spawnSync(QUILLON_CLI, saved.command.split(' ').slice(1), { cwd: work }).status;
    assert.ok(status === 0 || status === kSomeFail, saved.command);
    assert.equal(readFileSync(join(work, 'results', 'results.jsonl'), 'utf8').trimEnd().split('\n').length, shown.length + 1);
  }
  if (QUILLON_PYTHON) {
    const program = `
import cv2, json, quillon, sys
recipe = quillon.Recipe(sys.argv[1])
for name in sys.argv[2:]:
    result = recipe.run(cv2.imread("images/" + name, cv2.IMREAD_UNCHANGED))
    print(json.dumps([result.verdict, result.measurements]))`;
    const printed = execFileSync('/usr/bin/python3', ['-c', program, name, ...files], { cwd: work, encoding: 'utf8', env: { ...process.env, PYTHONPATH: QUILLON_PYTHON } });
    const wanted = shown.map((line) => JSON.parse(line)).map(({ verdict, measurements }) => [verdict, measurements]);
    assert.deepEqual(printed.trim().split('\n').map((line) => JSON.parse(line)), wanted);
  }
}

// ---- workflows -----------------------------------------------------------------------------------

test('first use: the sample task is solved by mouse and keyboard', async () => {
  await page.locator('.hint button', { hasText: 'Next' }).click();
  await page.locator('.hint button', { hasText: 'Skip' }).click();
  assert.match(await page.innerText('#task'), /Task 1 of 3/);
  await page.locator('[role=slider][aria-label=above]').focus();
  for (let i = 0; i < 10; ++i) await page.keyboard.press('PageUp');
  assert.equal((await recipe()).steps[0].above, 130);
  await addStep('blobs');
  await page.locator('.argument', { hasText: 'min area' }).locator('input[type=checkbox]').check();
  await page.locator('[data-key="1 min_area number"]').fill('100');
  await page.waitForFunction(() => document.querySelector('#task').classList.contains('solved'));
  const counts = await page.evaluate(() => workbench.state.images.map(({ result, truth }) => [result.measurements[0].value, truth.length]));
  for (const [found, drawn] of counts) assert.equal(found, drawn);
  await assertSameElsewhere();
});

test('steps: undo, redo, rename, reorder; errors stand beside their field', async () => {
  await page.locator('[data-key="1 name"]').fill('parts');
  await page.keyboard.press('Enter');
  assert.deepEqual((await recipe()).measurements.map(({ input }) => input), ['parts']);
  await page.locator('[aria-label="Move parts up"]').click();
  await page.waitForFunction(() => [...document.querySelectorAll('#steps .wrong')].some(({ textContent }) => /nothing before this/.test(textContent)));
  await page.keyboard.press('Control+z');
  await page.keyboard.press('Control+z');
  assert.deepEqual((await recipe()).steps.map(({ name }) => name), ['bright', 'blobs']);
  await page.click('#redo');
  assert.equal((await recipe()).steps[1].name, 'parts');
  await page.locator('[data-key="0 open"]').click();
  await page.locator('[data-key="0 above number"]').fill('999');
  await page.waitForFunction(() => /999 is not a whole number from/.test(document.querySelector('[data-error="0 above"]').textContent));
  await page.click('#undo');
  await settled();
  assert.deepEqual(await page.evaluate(() => workbench.state.problems), []);
});

test('viewer: zoom, readout, rows and drawings are linked, a line has a profile', async () => {
  const canvas = await page.locator('#canvas canvas').boundingBox();
  const middle = [canvas.x + canvas.width / 2, canvas.y + canvas.height / 2];
  await page.mouse.move(...middle);
  const before = await page.innerText('.readout');
  await page.mouse.wheel(0, -600);
  await page.mouse.move(middle[0] + 1, middle[1]);
  assert.match(before, /^x \d+, y \d+: (grey \d+|red)/);
  await page.waitForFunction((old) => document.querySelector('.readout').textContent.split('·')[1] !== old.split('·')[1], before);
  await page.click('text=Fit');
  // Of drawings that lie over one another, the smallest is pointed at.
  const place = await page.evaluate(() => workbench.state.look.inspection.steps.find(({ things }) => things).things
    .toSorted((one, other) => (one.right - one.left) * (one.bottom - one.top) - (other.right - other.left) * (other.bottom - other.top))[0]);
  const { width, height, zoom } = await page.evaluate(() => {
    const { width: w, height: h } = workbench.state.look.picture, element = document.querySelector('#canvas canvas');
    return { width: w, height: h, zoom: Math.min(element.clientWidth / w, element.clientHeight / h, 8) };
  });
  const at = (x, y) => [canvas.x + (canvas.width - width * zoom) / 2 + (x + 0.5) * zoom, canvas.y + (canvas.height - height * zoom) / 2 + (y + 0.5) * zoom];
  await page.mouse.move(...at(place.x, place.y));
  await page.waitForFunction((n) => document.querySelector('#rows tr.on td')?.textContent === String(n), place.n);
  await page.click('#line');
  await page.mouse.move(...at(100, 100));
  await page.mouse.down();
  await page.mouse.move(...at(400, 100), { steps: 3 });
  await page.mouse.up();
  assert.match(await page.innerText('#profile'), /^3\d\d pixels, 0 to 255/);
  await page.click('#line');
});

test('limits by example: marked images give limits with their margin, and errors are counted', async () => {
  for (const [n, key] of ['g', 'g', 'g', 'b'].entries()) {
    await page.locator('#film li').nth(n).click();
    await page.keyboard.press(key);
  }
  const counts = await page.evaluate(() => workbench.state.images.map(({ result }) => result.measurements[0].value));
  await page.locator('button', { hasText: 'Propose limits' }).first().click();
  assert.match(await lastNote(), /^Margin/);
  const [{ min, max }] = (await recipe()).measurements;
  assert.ok(counts.slice(0, 3).every((count) => !(count < min) && !(count > max)), `${counts}: ${min} ${max}`);
  assert.match(await page.innerText('#measurements .quiet'), /of 1 bad accepted, 0 of 3 good rejected/);
  const limit = page.locator('#measurements [role=slider]').first();
  await limit.focus();
  await page.keyboard.press('ArrowLeft');
  assert.ok((await recipe()).measurements[0].min < min);
  await assertSameElsewhere();
});

test('verdicts are of the recipe as it is, also when it changes during a run', async () => {
  const kept = await recipe();
  const other = { ...kept, measurements: [{ name: 'parts', input: 'parts', value: 'count', max: 1 }] };
  await page.evaluate(() => workbench.schedule(0));
  await page.waitForFunction(() => workbench.state.images.some(({ isStale }) => !isStale));
  await openRecipe(other);
  const changed = await lines();
  assert.ok(changed.every((line) => JSON.parse(line).verdict === 'fail'), changed.join('\n'));
  await openRecipe(kept, []);
  await settled();
});

test('before and after: the filmstrip says which verdicts changed', async () => {
  await settled();
  await page.click('#compare');
  await openRecipe({ ...(await recipe()), measurements: [{ name: 'parts', input: 'parts', value: 'count', min: 1000 }] });
  await settled();
  await page.waitForFunction(() => /now 0 pass/.test(document.querySelector('#compared').textContent));
  assert.ok((await page.locator('#film .change').allInnerTexts()).some((text) => text === 'was pass'));
  await page.locator('button', { hasText: 'Take the version before' }).click();
  await settled();
  await page.waitForFunction(() => / 0 of \d+ verdicts differ, 0 results/.test(document.querySelector('#compared').textContent));
  await page.click('#compare');
});

test('teaching: a box becomes a template, the finder judges it, all images are searched', async () => {
  await page.locator('#film li').first().click();
  await addStep('find');
  await page.waitForFunction(() => /is missing/.test(document.querySelector('[data-error="2 template"]')?.textContent));
  const part = await page.evaluate(() => workbench.state.images[0].truth.find(({ kind }) => /bracket|gear|plate/.test(kind)) ?? workbench.state.images[0].truth[0]);
  const dragOverPart = async () => {
    await page.locator('button', { hasText: 'Teach from the picture' }).click();
    await page.waitForFunction(() => workbench.state.slot === null && !workbench.live.isBusy);
    await page.click('text=Fit');
    const canvas = await page.locator('#canvas canvas').boundingBox();
    const { width, height } = await page.evaluate(() => workbench.state.look.picture);
    const zoom = Math.min(canvas.width / width, canvas.height / height);
    const at = (x, y) => [canvas.x + (canvas.width - width * zoom) / 2 + (x + 0.5) * zoom, canvas.y + (canvas.height - height * zoom) / 2 + (y + 0.5) * zoom];
    await page.mouse.move(...at(part.x - 50, part.y - 50));
    await page.mouse.down();
    await page.mouse.move(...at(part.x + 50, part.y + 50), { steps: 4 });
    await page.mouse.up();
    await page.waitForSelector('dialog .judged p');
    assert.match(await page.innerText('dialog .judged'), /edge points/);
  };
  assert.equal((await recipe()).steps[2].input, 'image');
  const assertFound = async (file) => {
    await page.locator('button', { hasText: 'Use this template' }).click();
    await settled();
    assert.equal((await recipe()).steps[2].template, file);
    const found = await page.evaluate(() => workbench.state.look.inspection.steps[2].things);
    assert.ok(found.some(({ x, y }) => Math.abs(x - part.x) < 8 && Math.abs(y - part.y) < 8), JSON.stringify(found));
    await assertSameElsewhere();
  };
  await dragOverPart();
  await assertFound('find.png');

  // The same with a corner brushed out: it is kept as a model.
  await dragOverPart();
  const before = await page.innerText('dialog .judged');
  const template = await page.locator('dialog canvas.template').boundingBox();
  await page.mouse.move(template.x + template.width / 3, template.y + template.height / 3);
  await page.mouse.down();
  await page.mouse.move(template.x + template.width / 2, template.y + template.height / 2, { steps: 5 });
  await page.mouse.up();
  await page.waitForFunction((old) => document.querySelector('dialog .judged').innerText !== old, before);
  await assertFound('find.model');
});

test('boards: a good board is taught, and defects of another are found', async () => {
  const boards = await page.evaluate(async () => Promise.all([['board', 0], ['tested board', 1]].map(async ([name, seed]) => {
    const { bytes, truth } = await workbench.live.ask('sample', { name, options: { seed, width: 640, height: 480 } });
    return [`${name.replace(' ', '-')}.png`, [...bytes], truth];
  })));
  await openRecipe({ name: 'Board', steps: [{ name: 'defects', operation: 'inspect', input: 'image', good: ['board.png'] }],
    measurements: [{ name: 'defects', input: 'defects', value: 'count', max: 0 }] }, [boards[0].slice(0, 2)]);
  await openRecipe({ ...(await recipe()) }, [boards[0].slice(0, 2)]);
  await page.evaluate(async ([name, bytes]) => workbench.openFiles([new File([new Uint8Array(bytes)], name)]), boards[1]);
  assert.deepEqual(await verdicts(), [['tested-board.png', 'fail']]);
  const found = await page.evaluate(() => JSON.parse(workbench.state.images[0].result.line).objects.length);
  assert.equal(found, boards[1][2].length);
  await page.locator('#which').selectOption('file: board.png');
  const pixels = () => page.evaluate(() => workbench.state.look.picture.rgba.reduce((sum, value) => sum + value, 0));
  await page.waitForFunction(() => !workbench.live.isBusy);
  const good = await pixels();
  await page.click('#blink');
  await page.waitForFunction(() => workbench.state.slot === null && !workbench.live.isBusy);
  assert.notEqual(await pixels(), good);
  await page.waitForFunction(() => workbench.state.slot === 'file: board.png');
  await page.click('#blink');
  await assertSameElsewhere();
});

// ---- promises ------------------------------------------------------------------------------------

test('a slider shows within 100 ms on 2 megapixels and ten steps', async (t) => {
  const steps = ['gaussian-5x5', 'median-3x3', 'sobel', 'invert', 'mean-5x5', 'gaussian-3x3', 'laplacian', 'invert', 'mean-3x3']
    .map((operation, i) => ({ name: `s${i}`, operation, input: i ? `s${i - 1}` : 'image' }));
  steps.push({ name: 'last', operation: 'threshold', input: 's8', above: 100 });
  const sizes = await page.evaluate(async () => {
    const { bytes } = await workbench.live.ask('sample', { name: 'tray', options: { seed: 9, width: 1920, height: 1080 } });
    await workbench.openFiles([new File([bytes], 'large.png')]);
    workbench.strip.stop();
    return workbench.state.images.length;
  });
  await openRecipe({ name: 'Ten', steps, measurements: [] });
  await page.locator('#film li').nth(sizes - 1).click();
  await page.locator('[data-key="9 open"]').click();
  await page.waitForFunction(() => workbench.state.look?.picture?.width === 1920 && !workbench.live.isBusy);
  const times = [];
  for (let above = 101; above < 116; ++above) {
    await page.locator('[data-key="9 above slider"]').evaluate((slider, value) => {
      slider.value = value;
      slider.dispatchEvent(new Event('input', { bubbles: true }));
    }, above);
    await page.waitForFunction(() => !workbench.live.isBusy);
    times.push(Number(await page.evaluate(() => document.body.dataset.latency)));
  }
  times.sort((a, b) => a - b);
  t.diagnostic(`fastest ${times[0]} ms, median ${times[7]} ms`);
  // Others may use this machine: the fastest says what the page can do.
  assert.ok(times[0] < 100, `${times}`);
});

test('what is opened and is nothing ends in a message', async () => {
  const cases = [
    ['recipe.json', '{', /no JSON/],
    ['recipe.json', '[1]', /no recipe/],
    ['recipe.json', '{"name":"x","steps":[3]}', /no recipe/],
    ['x.zip', 'PK', /no zip/],
    ['nothing.txt', 'hello', /Nothing here/],
  ];
  for (const [name, text, message] of cases) {
    await page.evaluate(([file, content]) => workbench.openFiles([new File([content], file)]), [name, text]);
    assert.match(await lastNote(), message);
  }
  const hostile = '<img src=x onerror="document.title=1">\u202e.png';
  await page.evaluate((name) => workbench.openFiles([new File([new Uint8Array(40)], name)]), hostile);
  const judged = await verdicts();
  assert.deepEqual(judged.at(-1), [hostile, 'unreadable']);
  assert.equal(await page.locator('#film img').count(), 0);
  await openRecipe(JSON.stringify({ name: hostile, steps: [{ name: '</script>', operation: 'otsu', input: '__proto__' }, { name: 'a', operation: 'constructor', input: 'image', template: '../../etc/passwd' }],
    measurements: [{ name: 'm', input: 'toString', value: 'count' }] }));
  await page.waitForFunction(() => workbench.state.problems.length >= 3);
  assert.equal(await page.title(), 'Quillon workbench');
});

test('a crash of the library and a closed page lose no work', async () => {
  await openRecipe({ name: 'Kept', steps: [{ name: 'kept', operation: 'otsu', input: 'image' }], measurements: [] });
  await page.evaluate(() => workbench.live.onCrash('test') ?? workbench.live.stop());
  await page.evaluate(() => workbench.state.images.length && workbench.schedule(0));
  await settled();
  await page.close();
  page = await openPage();
  assert.equal((await recipe()).name, 'Kept');
});

test('narrow: every pane is reached, nothing is wider than the page', async () => {
  await page.setViewportSize({ width: 390, height: 780 });
  for (const [pane, id] of [['images', 'film'], ['picture', 'canvas'], ['steps', 'steps'], ['limits', 'measurements']]) {
    await page.locator(`[data-goto=${pane}]`).click();
    assert.ok(await page.locator(`#${id}`).isVisible(), pane);
    assert.ok(await page.evaluate(() => [...document.querySelectorAll('#top, #task, main, main > section, .card')].every((element) => element.getBoundingClientRect().right <= innerWidth)), pane);
  }
});

test('nothing was asked of any network, and nothing failed unseen', () => {
  assert.deepEqual(requests.filter((url) => !/^(file|blob|data):/.test(url)), []);
  assert.deepEqual(requests.filter((url) => url.startsWith('file:') && url !== address), []);
  assert.deepEqual(failures, []);
  assert.match(readFileSync(QUILLON_WORKBENCH, 'utf8'), /Content-Security-Policy" content="default-src 'none'; script-src 'sha256-/);
});
