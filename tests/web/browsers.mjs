// Firefox and WebKit, the engine of Safari, as browser_test.mjs drives them: each gives a page with
//   goto(url), evaluate(function, ...given), press(key), type(text), click(selector), drag(from, to),
//   failures() and requests(), to any network, and end().
// FIREFOX or WEBKIT names the browser, WebKit by its driver; Xvfb gives that a screen.
import { spawn } from 'node:child_process';
import { mkdirSync, writeFileSync } from 'node:fs';
import { createServer } from 'node:http';
import { join } from 'node:path';
import { pathToFileURL } from 'node:url';

const { FIREFOX, WEBKIT, QUILLON_DRIVER } = process.env;
const kWidth = 1400, kHeight = 900;

async function openFirefox(downloads) {
  const modules = join(QUILLON_DRIVER, 'node_modules', 'puppeteer-core');
  const { default: puppeteer } = await import(pathToFileURL(join(modules, 'lib', 'puppeteer', 'puppeteer-core.js')).href);
  const browser = await puppeteer.launch({
    browser: 'firefox', executablePath: FIREFOX, headless: true,
    extraPrefsFirefox: { 'browser.download.folderList': 2, 'browser.download.dir': downloads, 'browser.download.useDownloadDir': true, 'browser.download.always_ask_before_handling_new_types': false },
  });
  const page = await browser.newPage();
  await page.setViewport({ width: kWidth, height: kHeight });
  const failures = [], requests = [];
  page.on('pageerror', (error) => failures.push(error.message));
  page.on('request', (request) => requests.push(request.url()));
  return {
    goto: (url) => page.goto(url),
    evaluate: (work, ...given) => page.evaluate(work, ...given),
    press: (key) => page.keyboard.press(key),
    type: (text) => page.keyboard.type(text),
    click: (selector) => page.click(selector),
    drag: async (from, to) => {
      await page.mouse.move(...from);
      await page.mouse.down();
      await page.mouse.move(...to, { steps: 4 });
      await page.mouse.up();
    },
    failures: async () => failures,
    requests: () => requests.filter((url) => !/^(file|blob|data|about):/.test(url)),
    end: () => browser.close(),
  };
}

// An answer to a question that is repeated until it is one.
export async function eventually(ask, seconds = 180) {
  for (const end = Date.now() + 1000 * seconds; ;) {
    const answer = await ask();
    if (answer) return answer;
    if (Date.now() > end) throw new Error(`after ${seconds} s there is no answer to ${ask}`);
    await new Promise((done) => setTimeout(done, 50));
  }
}

const kKeys = { Enter: '\ue007', Escape: '\ue00c', PageUp: '\ue00e' };  // as the protocol of drivers has them

async function freePort() {
  const server = createServer();
  await new Promise((done) => server.listen(0, '127.0.0.1', done));
  const { port } = server.address();
  await new Promise((done) => server.close(done));
  return port;
}

async function openWebKit(downloads) {
  const begun = [];
  const begin = (program, args, options) => {
    const child = spawn(program, args, { stdio: ['ignore', 'ignore', 'inherit', 'pipe'], ...options });
    begun.push(child.on('error', (error) => console.error(error.message)));
    return child;
  };
  // A screen of its own; it tells its number when it is there.
  const screen = begin('Xvfb', ['-displayfd', '3', '-screen', '0', `${kWidth}x${kHeight}x24`, '-nolisten', 'tcp']);
  const number = await new Promise((resolve) => screen.stdio[3].once('data', (text) => resolve(String(text).trim())));
  // Whatever the page asks of a network goes to this server, and is kept.
  const requests = [];
  const network = createServer((request, response) => {
    requests.push(request.url);
    response.writeHead(404).end();
  });
  await new Promise((done) => network.listen(0, '127.0.0.1', done));
  const proxy = `127.0.0.1:${network.address().port}`;
  const home = join(downloads, 'home');
  mkdirSync(home);
  writeFileSync(join(home, 'user-dirs.dirs'), `XDG_DOWNLOAD_DIR="${downloads}"\n`);
  const port = await freePort();
  begin(WEBKIT, [`--port=${port}`], { env: { ...process.env, DISPLAY: `:${number}`, HOME: home, XDG_CONFIG_HOME: home, XDG_CACHE_HOME: home, XDG_DATA_HOME: home } });
  const ask = async (method, path, body) => {
    const response = await fetch(`http://127.0.0.1:${port}${path}`, { method, body: body && JSON.stringify(body) });
    const { value } = await response.json();
    if (!response.ok) throw new Error(`${value.error}: ${value.message}`);
    return value;
  };
  await eventually(() => ask('GET', '/status').then(() => true, () => false));
  const { sessionId } = await ask('POST', '/session', { capabilities: { alwaysMatch: { proxy: { proxyType: 'manual', httpProxy: proxy, sslProxy: proxy } } } });
  const session = (method, path, body) => ask(method, `/session/${sessionId}/${path}`, body);
  await session('POST', 'window/rect', { x: 0, y: 0, width: kWidth, height: kHeight });
  const evaluate = async (work, ...given) => {
    const [answer, error] = await session('POST', 'execute/async', {
      script: `const [given, done] = arguments; (async () => [await (${work})(...given)])().then(done, (error) => done([null, String(error)]));`,
      args: [given],
    });
    if (error) throw new Error(error);
    return answer;
  };
  const act = (type, actions) => session('POST', 'actions', { actions: [{ type, id: type, actions, ...(type === 'pointer' ? { parameters: { pointerType: 'mouse' } } : {}) }] });
  const strike = (keys) => act('key', keys.flatMap((value) => [{ type: 'keyDown', value }, { type: 'keyUp', value }]));
  const move = ([x, y], duration = 0) => ({ type: 'pointerMove', x: Math.round(x), y: Math.round(y), duration });
  const [down, up] = ['pointerDown', 'pointerUp'].map((type) => ({ type, button: 0 }));
  return {
    evaluate,
    goto: async (url) => {
      await session('POST', 'url', { url });
      await evaluate(() => {
        globalThis.unseen = [];
        for (const event of ['error', 'unhandledrejection']) addEventListener(event, ({ message, reason }) => unseen.push(String(message ?? reason)));
        document.addEventListener('securitypolicyviolation', ({ violatedDirective, blockedURI }) => unseen.push(`${violatedDirective} ${blockedURI}`));
      });
    },
    press: (key) => strike([kKeys[key]]),
    type: (text) => strike([...text]),
    click: async (selector) => {
      const at = await evaluate((where) => {
        const { left, top, width, height } = document.querySelector(where).getBoundingClientRect();
        return [left + width / 2, top + height / 2];
      }, selector);
      await act('pointer', [move(at), down, up]);
    },
    drag: (from, to) => act('pointer', [move(from), down, move([(from[0] + to[0]) / 2, (from[1] + to[1]) / 2], 50), move(to, 50), up]),
    picture: async () => Buffer.from(await session('GET', 'screenshot'), 'base64'),
    failures: () => evaluate(() => unseen),
    requests: () => requests,
    end: async () => {
      await session('DELETE', '').catch(() => {});
      network.close();
      for (const child of begun.reverse()) child.kill();
    },
  };
}

export const openBrowser = (downloads) => (WEBKIT ? openWebKit(downloads) : openFirefox(downloads));
