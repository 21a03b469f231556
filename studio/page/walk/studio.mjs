// A studio and a browser for the walks: both end with the test.
import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import fs from 'node:fs';
import { createRequire } from 'node:module';
import os from 'node:os';
import path from 'node:path';
import { after, before } from 'node:test';
import { chromium } from 'playwright-core';

const PROGRAM = process.env.STUDIO_PROGRAM;
const PAGE = process.env.STUDIO_PAGE;
export const BROWSER = process.env.STUDIO_BROWSER ?? '/usr/bin/chromium';

export async function startStudio(folder, ...args) {
  const child = spawn(PROGRAM, ['--language', 'en', '--page', PAGE, ...args], { cwd: folder, env: { ...process.env, XDG_DATA_HOME: folder }, stdio: ['ignore', 'pipe', 'inherit'] });
  const address = await new Promise((resolve, reject) => {
    let text = '';
    child.stdout.on('data', (bytes) => {
      text += bytes;
      const found = /https?:\S+/.exec(text);
      if (found) resolve(found[0]);
    });
    child.once('exit', (code) => reject(new Error(`the studio ended with ${code}`)));
  });
  const stop = () =>
    new Promise((resolve) => {
      if (child.exitCode !== null) return resolve(child.exitCode);
      child.once('exit', resolve);
      child.kill('SIGTERM');
    });
  return { address, child, stop };
}

export function startBrowser() {
  return chromium.launch({
    executablePath: BROWSER,
    headless: true,
    args: ['--force-device-scale-factor=1', '--font-render-hinting=none'],
  });
}

// A page whose errors are collected: the walk fails on any.
export async function openPage(browser, address, options = {}) {
  const context = await browser.newContext({ viewport: { width: 1600, height: 1000 }, reducedMotion: 'reduce', ...options });
  const page = await context.newPage();
  page.setDefaultTimeout(60000);
  const errors = [];
  page.on('pageerror', (error) => errors.push(`page: ${error}`));
  page.on('console', (message) => {
    if (['error', 'warning'].includes(message.type())) errors.push(`console: ${message.text()}`);
  });
  page.on('requestfailed', (request) => errors.push(`request: ${request.url()} ${request.failure()?.errorText}`));
  await page.goto(address);
  return { page, errors };
}

// When what was asked for is laid out and painted.
function settled(page) {
  return page.evaluate(() => new Promise((resolve) => requestAnimationFrame(() => requestAnimationFrame(() => setTimeout(resolve, 0)))));
}

// When the drawing does not move any more.
export async function still(locator) {
  await locator.evaluate(
    (element) =>
      new Promise((resolve) => {
        let before = '';
        let same = 0;
        const look = () => {
          const { x, y } = element.getBoundingClientRect();
          same = `${x} ${y}` === before ? same + 1 : 0;
          before = `${x} ${y}`;
          if (same === 10) resolve();
          else requestAnimationFrame(look);
        };
        look();
      }),
  );
}

// From the middle of one to that of the other; what `over` does is done before the button is let go.
export async function drag(page, from, to, over = async () => {}) {
  const start = await from.boundingBox();
  const end = await to.boundingBox();
  await page.mouse.move(start.x + start.width / 2, start.y + start.height / 2);
  await page.mouse.down();
  await page.mouse.move(end.x - 30, end.y + 4, { steps: 6 });
  await page.mouse.move(end.x + end.width / 2, end.y + end.height / 2, { steps: 4 });
  await over();
  await page.mouse.up();
}

// The answer to a command on a connection of its own.
export function ask(page, command) {
  return page.evaluate(
    (wanted) =>
      new Promise((resolve) => {
        const socket = new WebSocket(`${location.protocol === 'https:' ? 'wss' : 'ws'}://${location.host}/live`);
        socket.onopen = () => socket.send(JSON.stringify({ ...wanted, id: 5 }));
        socket.onmessage = ({ data }) => {
          if (!data.includes('"answer":5')) return;
          socket.close();
          resolve(JSON.parse(data));
        };
      }),
    command,
  );
}

async function setLanguage(page, language) {
  await page.getByLabel('Language / Sprache').selectOption(language);
  await page.waitForFunction((wanted) => document.documentElement.lang === wanted, language);
}

// Buttons and fields that reach over the page's edge, where nothing scrolls, and the page if it scrolls sideways.
const CUT_OFF = () => {
  const found = [];
  const isIn = (element) => element.closest('.svelte-flow, .scroll, .cm-editor') !== null;
  for (const element of document.querySelectorAll('button, input, select, h2, h3, p, [role=img]')) {
    const box = element.getBoundingClientRect();
    if (box.width > 0 && !isIn(element) && (box.right > window.innerWidth + 1 || box.left < -1)) found.push(element.outerHTML.slice(0, 120));
  }
  if (document.documentElement.scrollWidth > window.innerWidth) found.push('the page scrolls sideways');
  return found;
};

// Whether all modules are within the drawing.
const IN_SIGHT = () => {
  const place = document.querySelector('.svelte-flow').getBoundingClientRect();
  const isIn = ({ left, right, top, bottom }) => left >= place.left && right <= place.right && top >= place.top && bottom <= place.bottom;
  return [...document.querySelectorAll('.svelte-flow__node')].every((node) => isIn(node.getBoundingClientRect()));
};

const axe = fs.readFileSync(createRequire(import.meta.url).resolve('axe-core/axe.min.js'), 'utf8');

// A folder, a browser and studios that end with the tests of the file.
export function walk() {
  const pictures = process.env.STUDIO_PICTURES ?? fs.mkdtempSync(path.join(os.tmpdir(), 'studio-pictures-'));
  fs.mkdirSync(pictures, { recursive: true });
  const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'studio-walk-'));
  const opened = [];
  let browser;

  before(async () => {
    browser = await startBrowser();
  });
  after(async () => {
    await browser?.close();
    for (const studio of opened) await studio.stop();
    fs.rmSync(folder, { recursive: true, force: true }); // made above, by its whole path
  });

  async function open(file, options, ...args) {
    const studio = await startStudio(folder, file, ...args);
    opened.push(studio);
    const { page, errors } = await openPage(browser, studio.address, options);
    await page.getByRole('button', { name: 'Save', exact: true }).waitFor();
    return { studio, page, errors };
  }

  async function picture(page, name) {
    await settled(page);
    await page.screenshot({ path: path.join(pictures, `${name}.png`), animations: 'disabled' });
  }

  // Every finding of the rules for accessibility, in words.
  async function barriers(page) {
    await page.evaluate(axe);
    return page.evaluate(async () => {
      const tags = ['wcag2a', 'wcag2aa', 'wcag21a', 'wcag21aa', 'wcag22aa'];
      const { violations } = await window.axe.run(document, { runOnly: tags, resultTypes: ['violations'] });
      return violations.map((found) => `${found.id}: ${found.nodes.map((node) => node.target.join(' ')).join('; ')}`);
    });
  }

  // Takes pictures of what is shown at all widths, narrow ones dark and in German; finds barriers and what is cut off. Where the
  // page has room for one part alone, that of the tab.
  async function look(page, name, tab = '') {
    for (const width of [1600, 800, 360]) {
      const isNarrow = width === 360;
      await page.setViewportSize({ width, height: isNarrow ? 780 : 1000 });
      await page.emulateMedia({ colorScheme: isNarrow ? 'dark' : 'light' });
      await setLanguage(page, isNarrow ? 'de' : 'en');
      if (isNarrow && tab) await page.getByRole('tab', { name: tab }).click();
      await picture(page, `${name}-${width}`);
      if (width !== 800) assert.deepEqual(await barriers(page), [], `${name} at ${width}`);
      assert.deepEqual(await page.evaluate(CUT_OFF), [], `${name} at ${width}`);
    }
    await page.setViewportSize({ width: 1600, height: 1000 });
    await setLanguage(page, 'en');
    await page.waitForFunction(IN_SIGHT);
  }

  const node = (page, name) => page.locator(`.svelte-flow__node[data-id="${name}"]`);
  const handle = (page, name, port, kind) => node(page, name).locator(`.svelte-flow__handle.${kind}[data-handleid="${port}"]`);
  return { folder, open, picture, barriers, look, node, handle };
}

export async function setField(page, label, value) {
  const field = page.getByLabel(new RegExp(`^\\s*${label}(\\s+\\(required\\))?\\s*$`));
  await field.fill(value);
  await field.press('Enter');
}
