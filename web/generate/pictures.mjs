// Draws the pictures of the guide: node generate/pictures.mjs WORKBENCH.html DRIVER-FOLDER OUT-FOLDER
import { createRequire } from 'node:module';
import { join } from 'node:path';
import { pathToFileURL } from 'node:url';
import { drawChessboard, views } from './chessboard.mjs';
import { recipeOfGuide } from './guide.mjs';

const [workbench, driver, out] = process.argv.slice(2);
const { chromium } = createRequire(pathToFileURL(join(driver, 'here.js')))('playwright-core');
const recipe = recipeOfGuide();

const browser = await chromium.launch({ executablePath: process.env.CHROMIUM ?? '/usr/bin/chromium', args: ['--no-sandbox'] });
async function draw(name, width, height, colorScheme, prepare) {
  const page = await browser.newPage({ viewport: { width, height }, colorScheme });
  page.setDefaultTimeout(120_000);  // machines that build have other things to do
  await page.goto(pathToFileURL(workbench).href);
  await page.waitForFunction(() => document.body.dataset.ready);
  await page.locator('.hint button', { hasText: 'Skip' }).click();
  await page.waitForFunction(() => workbench.state.images.length === 6);
  await page.evaluate((text) => workbench.openFiles([new File([text], 'recipe.json')]), JSON.stringify(recipe));
  await page.waitForFunction(() => !workbench.strip.isBusy && workbench.state.images.every(({ isStale, result }) => !isStale && result));
  await prepare?.(page);
  await page.waitForFunction(() => !document.querySelector('#notes .note') && !workbench.live.isBusy);
  await page.screenshot({ path: join(out, name) });
  await page.close();
}
await draw('workbench.png', 1280, 800, 'light', async (page) => {
  const form = page.locator('[data-key="0 open"]');
  if (await form.getAttribute('aria-expanded') === 'false') await form.click();
});
await draw('workbench-limits.png', 390, 780, 'dark', async (page) => {
  for (const [n, key] of ['g', 'g', 'b', 'g'].entries()) {
    await page.locator('[data-goto=images]').click();
    await page.locator('#film li').nth(n).click();
    await page.keyboard.press(key);
  }
  await page.locator('[data-goto=limits]').click();
});
await draw('workbench-camera.png', 1280, 800, 'light', async (page) => {
  const files = views.map((view, i) => [`view-${i + 1}.pgm`, drawChessboard(view).toString('base64')]);
  await page.evaluate(async (all) => {
    await workbench.openFiles(all.map(([name, text]) => new File([Uint8Array.from(atob(text), (character) => character.charCodeAt(0))], name)));
    document.querySelector('#calibrate').click();
  }, files);
  await page.locator('[data-key="calibrate rows"]').fill('7');
  await page.locator('dialog button', { hasText: 'Find the board' }).click();
  await page.waitForFunction(() => document.querySelector('dialog .told b'));
  await page.waitForFunction(() => /residuals/.test(document.querySelector('dialog .views p').textContent));
});
await browser.close();
