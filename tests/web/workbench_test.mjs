// The workbench in headless Chromium, as a person uses it on drawn pictures.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { mkdirSync, mkdtempSync, readFileSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { after, before, test } from 'node:test';
import {
  addStep, address, assertSameElsewhere, downloaded, drag, dropPaths, end, failures, folder, lastNote, launch, lines, openPage, openRecipe, placesOfPicture, openFiles, recipe, removeImages, requests, saved, settled, teach, verdicts,
} from './page.mjs';
import { drawChessboard, views } from '../../web/generate/chessboard.mjs';

let page;
before(async () => {
  await launch();
  page = await openPage();
});
after(end);

// ---- workflows -----------------------------------------------------------------------------------

test('first use: the sample task is solved by mouse and keyboard', async () => {
  await page.keyboard.press('Enter');
  assert.match(await page.innerText('.hint'), /^2 of 5/);
  await page.keyboard.press('Escape');
  assert.equal(await page.locator('.hint').count(), 0);
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
  await assertSameElsewhere({ inCpp: true });
});

test('the report has a page of each image and an index, as a run writes them', async () => {
  const { path } = await saved('Report of 6 images');
  const names = execFileSync('unzip', ['-Z1', path], { encoding: 'utf8' }).trim().split('\n').sort();
  const numbers = [1, 2, 3, 4, 5, 6];
  assert.deepEqual(names, ['index.html', ...numbers.map((n) => `pages/000${n}-tray-${n}.html`), ...numbers.map((n) => `thumbs/000${n}.jpg`)]);
  const index = execFileSync('unzip', ['-p', path, 'index.html'], { encoding: 'utf8' });
  for (const name of names.slice(1)) assert.ok(index.includes(name), name);
  assert.match(execFileSync('unzip', ['-p', path, 'pages/0002-tray-2.html'], { encoding: 'utf8', maxBuffer: 1 << 26 }), /tray-2\.png[^]*class='verdict pass'/);
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
  const grip = (name) => page.locator(`[data-step="${name}"] header`);
  await addStep('invert');
  await grip('invert').dragTo(grip('bright'));
  assert.deepEqual((await recipe()).steps.map(({ name }) => name), ['invert', 'bright', 'parts']);
  await page.locator('[data-key="0 open"]').focus();
  await page.keyboard.press('Alt+ArrowDown');
  assert.deepEqual((await recipe()).steps.map(({ name }) => name), ['bright', 'invert', 'parts']);
  for (let i = 0; i < 3; ++i) await page.keyboard.press('Control+z');
  assert.deepEqual((await recipe()).steps.map(({ name }) => name), ['bright', 'parts']);
});

test('regions: rectangles, polygons and circles that the mouse draws limit what is found', async () => {
  const kept = await recipe();
  await page.locator('#film li').first().click();
  await page.evaluate(() => document.querySelector('[data-key="1 open"]').getAttribute('aria-expanded') === 'true' || document.querySelector('[data-key="1 open"]').click());
  await settled();
  const all = await page.evaluate(() => workbench.state.look.inspection.steps[1].things.length);
  const corners = [[150, 120], [800, 200], [700, 600], [300, 560]];
  const kShapes = {
    Rectangle: { draw: async (at) => drag(at(150, 120), at(700, 500)), wanted: [[150, 120], [700, 120], [700, 500], [150, 500]] },
    // The last of the corners by a double click, then by Enter.
    Polygon: {
      draw: async (at) => {
        for (const corner of corners.slice(0, -1)) await page.mouse.click(...at(...corner));
        await page.mouse.dblclick(...at(...corners.at(-1)));
      },
      wanted: corners,
    },
    'Polygon, ended by Enter': {
      draw: async (at) => {
        for (const corner of corners.slice(0, 3)) await page.mouse.click(...at(...corner));
        await page.keyboard.press('Enter');
      },
      wanted: corners.slice(0, 3),
    },
    Circle: {
      draw: async (at) => drag(at(480, 360), at(480, 160)),
      wanted: Array.from({ length: 36 }, (_, i) => [480 + 200 * Math.cos((i * Math.PI) / 18), 360 + 200 * Math.sin((i * Math.PI) / 18)]),
    },
  };
  for (const [name, { draw, wanted }] of Object.entries(kShapes)) {
    await page.locator('.argument', { hasText: 'polygon' }).locator('button', { hasText: name.split(',')[0] }).click();
    await page.waitForFunction(() => workbench.state.slot === 'bright' && !workbench.live.isBusy);
    await draw(await placesOfPicture());
    await settled();
    const { polygon } = (await recipe()).steps[1];
    assert.equal(polygon.length, wanted.length, name);
    // A pixel of the screen is more than one of the picture.
    wanted.forEach(([x, y], i) => assert.ok(Math.abs(polygon[i][0] - x) <= 2.5 && Math.abs(polygon[i][1] - y) <= 2.5, `${name}: ${polygon[i]}, ${[x, y]}`));
    const things = await page.evaluate(() => workbench.state.look.inspection.steps[1].things);
    assert.ok(things.length > 0 && things.length < all, `${name}: ${things.length} of ${all}`);
    const [xs, ys] = [0, 1].map((axis) => polygon.map((corner) => corner[axis]));
    for (const { left, top, right, bottom } of things) {
      assert.ok(left >= Math.min(...xs) && right <= Math.max(...xs) && top >= Math.min(...ys) && bottom <= Math.max(...ys), name);
    }
  }
  await assertSameElsewhere();
  // A region is also typed; what cannot be one is said beside it.
  await page.locator('[data-key="1 polygon"]').fill('[[10, 10], [20, 10]]');
  await page.keyboard.press('Enter');
  await page.waitForFunction(() => /polygon|points|corners/.test(document.querySelector('[data-error="1 polygon"]').textContent));
  await openRecipe(kept);
});

test('measuring: edges, lines, circles and their angles are those of the command line to the last digit', async () => {
  const kept = await recipe();
  const [part] = await page.evaluate(() => workbench.state.images[0].truth);
  const around = (operation, place) => Array.from({ length: 2 }, (_, i) => ({ name: `${operation} ${i}`, operation, input: 'image', ...place(i) }));
  const steps = [
    ...around('edges', (i) => ({ box: [part.x, part.y, 90, 12, 17.3 * i + 3] })),
    ...around('edge-pairs', (i) => ({ box: [part.x, part.y, 100, 10, 31.7 * i + 1] })),
    ...around('fit-line', (i) => ({ box: [part.x + 12, part.y, 50, 40, 23.1 * i + 5] })),
    ...around('fit-circle', (i) => ({ ring: [part.x + i, part.y, 5, 60] })),
    ...around('fit-ellipse', (i) => ({ ring: [part.x, part.y + i, 5, 60] })),
    { name: 'contours', operation: 'fit-contour-ellipses', input: 'image', level: 124, box: [part.x, part.y, 120, 120, 5] },
    { name: 'bright', operation: 'threshold', input: 'image', above: 124 },
    { name: 'shapes', operation: 'shapes', input: 'bright', min_area: 100 },
  ];
  await openRecipe({ name: 'Measure', steps, measurements: [
    { name: 'angle', input: ['fit-line 0', 'fit-line 1'], value: 'angle-between' },
    { name: 'formula', value: 'sin(angle) + cos(angle) * tan(angle)' },
  ] });
  await assertSameElsewhere();
  await openRecipe(kept);
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
  const at = await placesOfPicture();
  await page.mouse.move(...at(place.x, place.y));
  await page.waitForFunction((n) => document.querySelector('#rows tr.on td')?.textContent === String(n), place.n);
  await page.locator('#rows').focus();
  const lit = () => page.innerText('#rows tr.on td');
  const first = Number(await lit());
  await page.keyboard.press('ArrowDown');
  assert.equal(Number(await lit()), first + 1);
  await page.keyboard.press('ArrowUp');
  assert.equal(Number(await lit()), first);
  await page.click('#line');
  await drag(at(100, 100), at(400, 100));
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
  const dragOverPart = async () => assert.match(await teach(part.x - 50, part.y - 50, part.x + 50, part.y + 50), /edge points/);
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

test('calibration: drawn views give the camera they were drawn by; a picture of nothing is left out', async () => {
  const blank = Buffer.concat([Buffer.from('P5 640 480 255\n'), Buffer.alloc(640 * 480, 90)]);
  await openRecipe({ name: 'Plane', steps: [{ name: 'dark', operation: 'double-threshold', input: 'image', between: [5, 60] },
    { name: 'squares', operation: 'blobs', input: 'dark', min_area: 50 }],
  measurements: [{ name: 'width', input: 'squares', value: 'width', which: 'largest' }] });
  await removeImages();
  await openFiles([...views.map((view, i) => [`view-${i + 1}.pgm`, drawChessboard(view)]), ['blank.pgm', blank]]);
  await page.click('#calibrate');
  await page.fill('[data-key="calibrate rows"]', '7');
  await page.fill('[data-key="calibrate square"]', '10');
  await page.locator('dialog button', { hasText: 'Find the board' }).click();
  await page.waitForFunction(() => /from where the fit has the corners/.test(document.querySelector('dialog .told').textContent));
  const rows = (column) => page.locator(`dialog tbody td:nth-child(${column})`).allInnerTexts();
  assert.deepEqual((await rows(3)).slice(0, -1), views.map(() => '63'));
  assert.match((await rows(3)).at(-1), /0 corners/);
  assert.equal(await page.locator('dialog tbody tr').last().locator('input[type=checkbox]').isDisabled(), true);
  const made = readFileSync(await downloaded('Save camera.json'), 'utf8');
  if (process.env.QUILLON_CLI) {
    const work = mkdtempSync(join(folder, 'camera-'));
    const names = views.map((view, i) => {
      writeFileSync(join(work, `view-${i + 1}.pgm`), drawChessboard(view));
      return `view-${i + 1}.pgm`;
    });
    execFileSync(process.env.QUILLON_CLI, ['calibrate', 'again.json', ...names, '--board', '9', '7', '--square', '10'], { cwd: work });
    assert.equal(readFileSync(join(work, 'again.json'), 'utf8'), made);
  }
  const camera = JSON.parse(made);
  assert.deepEqual([camera.width, camera.height], [640, 480]);
  // The drawing's focal length is 800, and 16 squares of 10 mm away it sees 0.2 mm with a pixel.
  assert.ok(Math.abs(camera.focal_length[0] - 800) < 4 && Math.abs(camera.unit_per_pixel - 0.2) < 0.003, JSON.stringify([camera.focal_length, camera.unit_per_pixel]));
  await page.locator('dialog tbody tr').nth(1).locator('input[type=checkbox]').uncheck();
  await page.waitForFunction(() => /from where the fit has the corners/.test(document.querySelector('dialog .told').textContent) && !workbench.live.isBusy);
  assert.equal((await rows(4))[1], '');
  await page.locator('dialog button', { hasText: 'Use it in the recipe' }).click();
  await page.locator('#measurements select[aria-label=unit]').selectOption('mm');
  await assertSameElsewhere();
});

test('images come by paste, drop, folder and camera', async () => {
  await removeImages();
  const png = Buffer.from(await page.evaluate(() => workbench.live.ask('sample', { name: 'tray', options: { seed: 1, width: 320, height: 240 } }).then(({ bytes }) => [...bytes])));
  const names = () => page.evaluate(() => workbench.state.images.map(({ name }) => name));
  const come = (count) => page.waitForFunction((n) => workbench.state.images.length === n, count);

  await page.evaluate((bytes) => navigator.clipboard.write([new ClipboardItem({ 'image/png': new Blob([new Uint8Array(bytes)], { type: 'image/png' }) })]), [...png]);
  await page.locator('#film').focus();
  await page.keyboard.press('Control+v');
  await come(1);
  assert.match((await names())[0], /^pasted \d+\.png$/);

  const work = join(folder, 'images');
  mkdirSync(join(work, 'inner'), { recursive: true });
  for (const name of ['one.png', 'inner/two.png']) writeFileSync(join(work, name), png);
  writeFileSync(join(work, 'notes.txt'), 'no image');
  await dropPaths([work, join(work, 'one.png')], '#canvas');
  await come(4);
  assert.deepEqual((await names()).slice(1).sort(), ['one 2.png', 'one.png', 'two.png']);

  const [chooser] = await Promise.all([page.waitForEvent('filechooser'), page.click('#open-folder')]);
  await chooser.setFiles(work);
  await come(6);
  assert.deepEqual((await names()).slice(4).sort(), ['images/inner/two.png', 'images/one.png']);

  await page.click('#camera');
  await page.waitForFunction(() => document.querySelector('dialog video')?.videoWidth > 0);
  await page.locator('dialog button', { hasText: 'Take a picture' }).click();
  await come(7);
  await page.keyboard.press('Escape');
  assert.equal((await names())[6], 'camera 7.png');
  await settled();
  assert.ok(await page.evaluate(() => workbench.state.images.every(({ hasThumbnail }) => hasThumbnail)));
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

// A script of the page that has every worker run `patch` before its own code.
const inWorkers = (patch) => `
  const create = URL.createObjectURL;
  URL.createObjectURL = (blob) => create(blob.type === 'text/javascript' ? new Blob([${JSON.stringify(patch)}, blob]) : blob);`;

test('what takes long shows a first result of what is visible, says so, and can be stopped', async () => {
  await page.close();
  page = await openPage(inWorkers(`
    self.addEventListener('message', ({ data }) => {
      while (data.work === 'look' && data.given.slot === 'endless') ;
    });`));
  await page.evaluate(async () => {
    const { bytes } = await workbench.live.ask('sample', { name: 'tray', options: { seed: 9, width: 4000, height: 3000 } });
    await workbench.openFiles([new File([bytes], 'huge.png')]);
  });
  await openRecipe({ name: 'Slow', steps: [{ name: 'endless', operation: 'mean', input: 'image', size: 3 }], measurements: [] });
  await page.locator('#film li').last().click();
  await page.locator('#which').selectOption('endless');
  await page.waitForFunction(() => /^Working… .* meanwhile the image at 1:\d/.test(document.querySelector('#busy-text').textContent));
  assert.ok(await page.locator('#busy').isVisible());
  await page.click('#give-up');
  assert.match(await lastNote(), /^Stopped\./);
  assert.ok(await page.locator('#busy').isHidden());
  assert.equal(await page.evaluate(() => workbench.live.isBusy), false);
});

// A module that is broken from below: its memory is overwritten, and whatever it does next traps.
const kBreakable = inWorkers(`
  const instantiate = WebAssembly.instantiate;
  WebAssembly.instantiate = async (...given) => (self.module = await instantiate(...given));
  self.addEventListener('message', ({ data }) => {
    if (data.work !== 'break') return;
    const { exports } = self.module.instance ?? self.module;
    new Uint8Array(Object.values(exports).find((value) => value instanceof WebAssembly.Memory).buffer).fill(255);
  });`);

test('a trap of the library and a closed page lose no work', async () => {
  await page.close();
  page = await openPage(kBreakable);
  const kept = { name: 'Kept', steps: [{ name: 'kept', operation: 'otsu', input: 'image' }], measurements: [{ name: 'mean', input: 'kept', value: 'mean' }] };
  await openRecipe(kept);
  const before = await lines();
  for (const engine of ['live', 'strip']) {
    await page.evaluate(async (which) => workbench[which].ask('break').catch(() => {}), engine);
    await page.evaluate(() => {
      document.querySelector('#notes').replaceChildren();
      workbench.schedule(0);
    });
    await page.locator('#which').selectOption('');
    await page.locator('#which').selectOption('kept');
    await page.waitForFunction(() => [...document.querySelectorAll('#notes .note')].some(({ textContent }) => /The library stopped \(.+\)\. It was begun anew; the recipe is kept\./.test(textContent)));
    assert.deepEqual(await recipe(), kept);
    await page.evaluate(() => workbench.schedule(0));
    assert.deepEqual(await lines(), before);
  }
  await page.close();
  page = await openPage();
  assert.equal((await recipe()).name, 'Kept');
});

test('a thousand images are judged once each, and the page answers meanwhile', async () => {
  await page.close();
  // The worker ends at no image of this name, so that the run stands still where it is looked at.
  page = await openPage(inWorkers(`
    self.addEventListener('message', ({ data }) => {
      while (data.work === 'inspect' && data.given.source.name === '700.pgm' && data.given.recipe.name === 'Halting') ;
    });`));
  await openRecipe({ name: 'Halting', steps: [{ name: 'bright', operation: 'threshold', input: 'image', above: 100 }, { name: 'spots', operation: 'blobs', input: 'bright' }],
    measurements: [{ name: 'spots', input: 'spots', value: 'count', max: 4 }] });
  await page.evaluate(() => {
    const { strip } = workbench;
    const ask = strip.ask.bind(strip);
    globalThis.asked = [];
    strip.ask = (work, given) => {
      if (work === 'inspect') asked.push(given.source.name);
      return ask(work, given);
    };
    // As many spots as the number has hundreds.
    const images = Array.from({ length: 1000 }, (_, n) => {
      const pixels = new Uint8Array(64 * 48);
      for (let spot = 0; spot < Math.floor(n / 100); ++spot) pixels.fill(200, 64 * (4 * spot + 2) + 10, 64 * (4 * spot + 2) + 20);
      return new File(['P5 64 48 255\n', pixels], `${n}.pgm`);
    });
    return workbench.openFiles(images);
  });
  const standing = () => page.waitForFunction(() => asked.at(-1) === '700.pgm' && workbench.strip.isBusy);
  await standing();
  // It is at work on the 701st: another image is shown, with its row, and the list answers the keyboard.
  await page.locator('#film').focus();
  await page.keyboard.press('End');
  await page.waitForFunction(() => workbench.state.look?.inspection?.steps[1]?.things.length === 9 && !workbench.live.isBusy);
  const judged = () => page.evaluate(() => workbench.state.images.filter(({ result, isStale }) => result && !isStale).length);
  const before = await judged();
  assert.ok(before >= 700, `${before} before the one that does not end`);
  await page.click('#stop');
  assert.match(await lastNote(), /^Stopped\./);
  assert.equal(await judged(), before);

  // Another recipe judges all of them, each once.
  await page.evaluate(() => asked.splice(0));
  await openRecipe({ ...(await recipe()), name: 'Ending' });
  const expected = Array.from({ length: 1000 }, (_, n) => [`${n}.pgm`, n < 500 ? 'pass' : 'fail']);
  assert.deepEqual(await verdicts(), expected);
  assert.equal(await page.evaluate(() => asked.length), 1000);
  // One more is judged alone.
  await openFiles([['more.pgm', Buffer.concat([Buffer.from('P5 8 8 255\n'), Buffer.alloc(64)])]]);
  assert.deepEqual((await verdicts()).at(-1), ['more.pgm', 'pass']);
  assert.deepEqual(await page.evaluate(() => asked.slice(1000)), ['more.pgm']);
  // Only what can be seen is laid out.
  assert.ok(await page.evaluate(() => [...document.querySelectorAll('#film li')].filter((item) => item.querySelector('canvas').checkVisibility({ contentVisibilityAuto: true })).length) < 60);
});

test('what follows a step follows it under its new name', async () => {
  const hole = { name: 'hole', operation: 'fit-circle', input: 'image', ring: [0, 0, 4, 14] };
  await openRecipe({ name: 'Followed', measurements: [], steps: [
    { name: 'bright', operation: 'otsu', input: 'image' }, { name: 'part', operation: 'blobs', input: 'bright' },
    { ...hole, follow: 'part' }, { ...hole, name: 'other', follow: ['part', 'hole'] }] });
  await page.locator('[data-key="1 name"]').fill('plate');
  await page.keyboard.press('Enter');
  assert.deepEqual((await recipe()).steps.slice(2).map(({ follow }) => follow), ['plate', ['plate', 'hole']]);
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
  assert.match(readFileSync(new URL(address), 'utf8'), /Content-Security-Policy" content="default-src 'none'; script-src 'sha256-/);
});
