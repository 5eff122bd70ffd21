// The workflows of the workbench on photographs: coins, sweets, scans of boards, views of a chessboard.
// What the page shows must be what the command line and Python say of the recipe that it saves.
// QUILLON_DATA names the folder of the photographs; without it all of this is skipped.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { existsSync, readFileSync, readdirSync } from 'node:fs';
import { join } from 'node:path';
import { after, before, beforeEach, describe, test } from 'node:test';
import {
  addStep, assertSameElsewhere, downloaded, drag, end, failures, lastNote, launch, lines, openFile, openFiles, openPage, openRecipe, placesOfPicture, recipe, settled, teach, verdicts,
} from './page.mjs';

const { QUILLON_CLI, QUILLON_DATA = '' } = process.env;
const photo = (name) => join(QUILLON_DATA, 'photos', name);
const board = (name) => join(QUILLON_DATA, 'pcb', name);

describe('photographs', { skip: existsSync(photo('coins.png')) ? false : 'QUILLON_DATA names no folder of photographs' }, () => {
  let page;
  before(launch);
  after(end);
  beforeEach(async () => {
    await page?.close();
    page = await openPage();
    if (await page.locator('.hint').count()) await page.locator('.hint button', { hasText: 'Skip' }).click();
  });
  const measured = () => page.evaluate(() => workbench.state.images.map(({ result }) => result.measurements[0]?.value));
  const show = (n) => page.locator('#film li').nth(n).click();

  test('filmstrip and steps: coins are counted, sweets and a page of text run too', async () => {
    for (const name of ['coins.png', 'smarties.png', 'page.png', 'fruits.jpg']) await openFile(photo(name));
    assert.deepEqual(await page.evaluate(() => workbench.state.images.map(({ name }) => name)), ['coins.png', 'smarties.png', 'page.png', 'fruits.jpg']);
    await openRecipe({ name: 'Coins', steps: [], measurements: [] });
    await show(0);
    await addStep('median-5x5');
    await addStep('otsu');
    await addStep('fill-holes');
    await addStep('blobs');
    await page.locator('.argument', { hasText: 'min area' }).locator('input[type=checkbox]').check();
    await page.locator('[data-key="3 min_area number"]').fill('300');
    await settled();
    assert.deepEqual((await recipe()).steps.map(({ input }) => input), ['image', 'median-5x5', 'otsu', 'fill-holes']);
    await assertSameElsewhere();
  });

  test('viewer and regions: a threshold is dragged in the histogram, a circle limits what is counted', async () => {
    await openFile(photo('coins.png'));
    await openRecipe({ name: 'One coin', steps: [{ name: 'bright', operation: 'threshold', input: 'image', above: 20 },
      { name: 'coins', operation: 'blobs', input: 'bright', min_area: 50 }], measurements: [{ name: 'coins', input: 'coins', value: 'count' }] });
    await show(0);
    await page.locator('[data-key="0 open"]').click();
    await settled();
    await page.waitForSelector('#histogram [role=slider]');
    const handle = await page.locator('#histogram [role=slider]').boundingBox();
    const chart = await page.locator('#histogram svg').boundingBox();
    const y = chart.y + chart.height / 2;
    await drag([handle.x + handle.width / 2, y], [chart.x + (chart.width * 120) / 255, y]);
    assert.ok(Math.abs((await recipe()).steps[0].above - 120) <= 2, JSON.stringify(await recipe()));
    const all = (await settled(), await measured())[0];
    await page.locator('[data-key="1 open"]').click();
    await page.locator('.argument', { hasText: 'polygon' }).locator('button', { hasText: 'Circle' }).click();
    await page.waitForFunction(() => !workbench.live.isBusy);
    const at = await placesOfPicture();
    await drag(at(192, 150), at(192, 60));
    await settled();
    assert.ok((await recipe()).steps[1].polygon.length > 20);
    const [inCircle] = await measured();
    assert.ok(inCircle > 0 && inCircle < all, `${inCircle} of ${all}`);
    await page.click('#line');
    await drag(at(20, 150), at(300, 150));
    assert.match(await page.innerText('#profile'), /^2\d\d pixels/);
    await assertSameElsewhere();
  });

  test('teaching: a coin becomes a template, and is found in its photograph', async () => {
    await openFile(photo('coins.png'));
    await openRecipe({ name: 'Find', steps: [], measurements: [] });
    await show(0);
    await addStep('find');
    assert.match(await teach(95, 10, 145, 62), /edge points/);
    await page.locator('button', { hasText: 'Use this template' }).click();
    await settled();
    const found = await page.evaluate(() => workbench.state.look.inspection.steps[0].things);
    assert.ok(found.some(({ x, y }) => Math.abs(x - 120) < 4 && Math.abs(y - 36) < 4), JSON.stringify(found));
    await assertSameElsewhere();
  });

  test('boards, limits by example, before and after: good scans and bad ones', async () => {
    const pairs = ['00041003', '00041044', '13000037'];
    for (const name of pairs) {
      await openFile(board(`${name}_temp.jpg`));
      await openFile(board(`${name}_test.jpg`));
    }
    await openRecipe({ name: 'Copper', steps: [{ name: 'copper', operation: 'otsu', input: 'image' }],
      measurements: [{ name: 'copper', input: 'copper', value: 'mean' }] });
    await settled();
    for (let n = 0; n < 2 * pairs.length; ++n) {
      await show(n);
      await page.keyboard.press(n % 2 ? 'b' : 'g');
    }
    await page.locator('button', { hasText: 'Propose limits' }).click();
    assert.match(await lastNote(), /^Margin [\d.]+\./);
    const judged = await verdicts();
    assert.ok(pairs.every((_, i) => judged[2 * i][1] === 'pass'), JSON.stringify(judged));
    await assertSameElsewhere();

    // Another version of the recipe: one good board, and what differs from it.
    await page.click('#compare');
    await openRecipe({ name: 'Board', steps: [{ name: 'defects', operation: 'inspect', input: 'image', good: ['00041003_temp.jpg'] }],
      measurements: [{ name: 'defects', input: 'defects', value: 'count', max: 0 }] }, [['00041003_temp.jpg', readFileSync(board('00041003_temp.jpg'))]]);
    await settled();
    const [good, bad] = await lines();
    assert.equal(JSON.parse(good).verdict, 'pass');
    assert.equal(JSON.parse(bad).verdict, 'fail');
    assert.match(await page.innerText('#compared'), /Before \d pass, now \d pass/);
    await page.click('#compare');
    await assertSameElsewhere();
  });

  test('calibration: a camera from views of a chessboard is the command’s, and the recipe measures in millimetres', async () => {
    const folder = join(QUILLON_DATA, 'chessboard');
    const views = readdirSync(folder).filter((name) => name.endsWith('.jpg')).sort();
    for (const name of views) await openFile(join(folder, name));
    await openRecipe({ name: 'Plane', steps: [{ name: 'dark', operation: 'double-threshold', input: 'image', between: [0, 90] },
      { name: 'squares', operation: 'blobs', input: 'dark', min_area: 200 }],
    measurements: [{ name: 'width', input: 'squares', value: 'width', which: 'first' }] });
    await page.click('#calibrate');
    await page.locator('dialog button', { hasText: 'Find the board' }).click();
    await page.waitForFunction(() => /from where the fit has the corners/.test(document.querySelector('dialog .told').textContent), null, { timeout: 120_000 });
    assert.deepEqual(await page.locator('dialog tbody td:nth-child(3)').allInnerTexts(), views.map(() => '54'));
    const made = readFileSync(await downloaded('Save camera.json'), 'utf8');
    assert.match(made, /"kind": "camera"/);
    await page.locator('dialog button', { hasText: 'Use it in the recipe' }).click();
    await settled();
    assert.equal((await recipe()).steps[0].parameters, 'camera.json');
    await page.locator('#measurements select[aria-label=unit]').selectOption('mm');
    await settled();
    const work = await assertSameElsewhere();
    if (QUILLON_CLI) {
      execFileSync(QUILLON_CLI, ['calibrate', 'again.json', ...views.map((name) => join('images', name)), '--board', '9', '6', '--square', '25'], { cwd: work });
      assert.equal(readFileSync(join(work, 'again.json'), 'utf8'), made);
    }
    // What was saved is opened again as it is.
    await openFiles([['camera.json', made]]);
    assert.match(await lastNote(), /camera.json: there for the steps/);
  });

  test('nothing failed unseen', () => assert.deepEqual(failures, []));
});
