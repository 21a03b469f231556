// A studio and a browser for the walks: both end with the test.
import { spawn } from 'node:child_process';
import { chromium } from 'playwright-core';

const PROGRAM = process.env.STUDIO_PROGRAM;
const PAGE = process.env.STUDIO_PAGE;
export const BROWSER = process.env.STUDIO_BROWSER ?? '/usr/bin/chromium';

export async function startStudio(folder, ...args) {
  const child = spawn(PROGRAM, ['--language', 'en', '--page', PAGE, ...args], { cwd: folder, stdio: ['ignore', 'pipe', 'inherit'] });
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
