// A studio and a browser for the walks: both end with the test.
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
      const found = /http:\S+/.exec(text);
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
  const errors = [];
  page.on('pageerror', (error) => errors.push(`page: ${error}`));
  page.on('console', (message) => {
    if (['error', 'warning'].includes(message.type())) errors.push(`console: ${message.text()}`);
  });
  page.on('requestfailed', (request) => errors.push(`request: ${request.url()} ${request.failure()?.errorText}`));
  await page.goto(address);
  return { page, errors };
}

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
    await page.getByRole('button', { name: 'Save' }).waitFor();
    return { studio, page, errors };
  }

  async function picture(page, name) {
    await page.waitForTimeout(300);
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

  const node = (page, name) => page.locator(`.svelte-flow__node[data-id="${name}"]`);
  const handle = (page, name, port, kind) => node(page, name).locator(`.svelte-flow__handle.${kind}[data-handleid="${port}"]`);
  return { folder, open, picture, barriers, node, handle };
}

export async function setField(page, label, value) {
  const field = page.getByLabel(new RegExp(`^\\s*${label}(\\s+\\(required\\))?\\s*$`));
  await field.fill(value);
  await field.press('Enter');
}
