// Measures the studio in a real browser and prints a table: `studio/bench BUILD` after a build. Names of figures as
// arguments choose some of them; that of memory over STUDIO_MINUTES is measured only when it is named.
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { performance } from 'node:perf_hooks';
import { fileURLToPath } from 'node:url';
import { startBrowser, startStudio } from '../walk/studio.mjs';
import { measureBokeh } from './bokeh.mjs';

const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'studio-figures-'));
const median = (values) => [...values].sort((a, b) => a - b)[Math.floor(values.length / 2)];
const rows = [];
const tell = (what, value, goal) => rows.push({ figure: what, value, goal });

function write(name, text) {
  fs.writeFileSync(path.join(folder, name), text);
  return name;
}

function signals(count) {
  let text = '';
  for (let i = 0; i < count; ++i) text += `[tone ${i}]\nmodule=Generator\nrate=100000\nfrequency=${50 + i}\nduration=100000\n`;
  text += '[levels]\nmodule=Statistics\n[lines]\n';
  for (let i = 0; i < count; ++i) text += `tone ${i}.Signal=levels.Signal ${i + 1}\n`;
  return text;
}

async function startTime() {
  const file = write('start.graph', signals(3));
  const times = [];
  for (let i = 0; i < 9; ++i) {
    const begin = performance.now();
    const studio = await startStudio(folder, file);
    times.push(performance.now() - begin);
    await studio.stop();
  }
  tell('start of the server', `${median(times).toFixed(0)} ms`, '50 ms');
}

// Paintings of charts: each puts its pixels once.
const COUNT_PAINTINGS = () => {
  window.paintings = 0;
  const put = CanvasRenderingContext2D.prototype.putImageData;
  CanvasRenderingContext2D.prototype.putImageData = function (...args) {
    ++window.paintings;
    return put.apply(this, args);
  };
};

async function openWith(browser, file, viewport, ...args) {
  const studio = await startStudio(folder, file, ...args);
  const context = await browser.newContext({ viewport });
  const page = await context.newPage();
  await page.addInitScript(COUNT_PAINTINGS);
  const begin = performance.now();
  await page.goto(studio.address);
  return { studio, page, begin, close: async () => (await context.close(), await studio.stop()) };
}

async function metricOf(page, name) {
  const devtools = await page.context().newCDPSession(page);
  await devtools.send('Performance.enable', { timeDomain: 'threadTicks' });
  return async () => (await devtools.send('Performance.getMetrics')).metrics.find((each) => each.name === name).value;
}

export async function paintingRate(page, charts) {
  const busySeconds = await metricOf(page, 'TaskDuration');
  const look = async () => ({
    seconds: await busySeconds(),
    paintings: await page.evaluate(() => window.paintings),
    time: performance.now(),
  });
  const before = await look();
  await page.waitForTimeout(5000);
  const after = await look();
  const painted = (after.paintings - before.paintings) / charts;
  return {
    rate: ((1000 * painted) / (after.time - before.time)).toFixed(1),
    busy: `${((1000 * (after.seconds - before.seconds)) / painted).toFixed(1)} ms`,
  };
}

// A page on which as many generators run in real time.
async function openRunning(browser, count, height) {
  const opened = await openWith(browser, write(`${count}.graph`, signals(count)), { width: 1600, height });
  const { page } = opened;
  await page.locator('.svelte-flow__node').first().waitFor();
  await page.getByRole('checkbox', { name: 'In real time' }).check();
  await page.getByRole('button', { name: 'Run', exact: true }).click();
  await page.getByText(/^running, /).waitFor();
  return opened;
}

// 16 traces in as many views as are wanted, all of them in sight.
async function showSixteen(page, views) {
  await page.getByRole('separator').focus();
  await page.keyboard.press('Home');
  await page.evaluate((count) => {
    const { studioPage } = window;
    const each = 16 / count;
    for (let view = studioPage.views.length; view < count; ++view) studioPage.addView(`tone ${each * view}.Signal`);
    studioPage.views.forEach((view, index) => {
      for (let more = 1; more < each; ++more) view.ports.push(`tone ${each * index + more}.Signal`);
    });
    studioPage.watch();
  }, views);
  await page.waitForTimeout(2000);
}

async function pictures(browser) {
  const { page, close } = await openRunning(browser, 16, 1000);
  const first = await page.evaluate(
    () =>
      new Promise((resolve) => {
        const before = window.paintings;
        const begin = performance.now();
        window.studioPage.addView('tone 0.Signal');
        const look = () => (window.paintings > before ? resolve(performance.now() - begin) : requestAnimationFrame(look));
        look();
      }),
  );
  tell('first picture of a signal that is chosen', `${first.toFixed(0)} ms`, '300 ms');
  await showSixteen(page, 4);
  const { rate, busy } = await paintingRate(page, 4);
  tell('pictures a second of each of 16 traces, four in each of four views', rate, '60');
  tell('processor time of the page for a picture of each of them', busy, '16.7 ms');
  await close();
}

// So many views have room in a window of 1600 x 2400 alone.
async function separateViews(browser) {
  const { page, close } = await openRunning(browser, 16, 2400);
  await showSixteen(page, 16);
  const { rate, busy } = await paintingRate(page, 16);
  tell('pictures a second of each of 16 traces in 16 views', rate, '60');
  tell('processor time of the page for a picture of each of them', busy, '16.7 ms');
  await close();
}

async function largeGraph(browser) {
  let text = '';
  for (let i = 0; i < 500; ++i) text += i % 5 === 0 ? `[m${i}]\nmodule=Generator\n` : `[m${i}]\nmodule=Filter\ncorner=100\n`;
  text += '[lines]\n';
  for (let i = 0; i < 500; ++i) if (i % 5 !== 0) text += `m${i - 1}.Signal=m${i}.Signal\n`;
  const { page, begin, close } = await openWith(browser, write('500.graph', text), { width: 1600, height: 1000 });
  await page.waitForFunction(() => window.studioPage?.graph?.instances.length === 500 && document.querySelectorAll('.svelte-flow__node').length > 0);
  await page.evaluate(() => new Promise((resolve) => requestAnimationFrame(() => requestAnimationFrame(resolve))));
  tell('graph of 500 modules drawn after the page is asked for', `${(performance.now() - begin).toFixed(0)} ms`, '1000 ms');
  await page.waitForTimeout(1000);
  const shown = await page.locator('.svelte-flow__node').count();
  const drag = async (x, y) => {
    await page.mouse.move(x, y);
    await page.mouse.down();
    await page.evaluate(() => {
      window.frames2 = 0;
      window.longest = 0;
      let last = performance.now();
      const count = () => {
        const now = performance.now();
        window.longest = Math.max(window.longest, now - last);
        last = now;
        ++window.frames2;
        requestAnimationFrame(count);
      };
      requestAnimationFrame(count);
    });
    const start = performance.now();
    for (let i = 0; performance.now() - start < 3000; ++i) await page.mouse.move(x + 200 * Math.sin(i / 20), y + 60 * Math.cos(i / 20));
    const rate = await page.evaluate((time) => (1000 * window.frames2) / time, performance.now() - start);
    await page.mouse.up();
    return rate.toFixed(1);
  };
  const canvas = await page.locator('.svelte-flow').boundingBox();
  tell(`pictures a second while it is dragged (${shown} modules in sight)`, await drag(canvas.x + 30, canvas.y + 20), '30');
  const node = await page.locator('.svelte-flow__node').first().boundingBox();
  tell('pictures a second while a module is dragged', await drag(node.x + 20, node.y + 8), '30');
  await close();
}

// One trace here, in a streaming plot of Bokeh in the same browser and in an animation of matplotlib, one after the other.
async function oneTrace(browser) {
  const { page, close } = await openRunning(browser, 1, 1000);
  await page.evaluate(() => window.studioPage.addView('tone 0.Signal'));
  await page.waitForTimeout(1000);
  const { rate, busy } = await paintingRate(page, 1);
  tell('pictures a second of one trace', rate, '60');
  tell('processor time of the page for each', busy, '');
  await close();
  const theirs = await measureBokeh(browser, paintingRate);
  tell('the same in a streaming plot of Bokeh', theirs?.rate ?? 'not installed', '');
  if (theirs) tell('processor time of the page for each', theirs.busy, '');
  try {
    const script = path.join(path.dirname(fileURLToPath(import.meta.url)), 'matplotlib_animation.py');
    const [each, eachBusy] = execFileSync('/usr/bin/python3', [script], { encoding: 'utf8' }).trim().split(' ');
    tell('the same in an animation of matplotlib, as many as it can', each, '');
    tell('processor time for each', `${eachBusy} ms`, '');
  } catch {
    tell('the same in an animation of matplotlib', 'not installed', '');
  }
}

function residentKilobytes(pid) {
  return Number(/VmRSS:\s+(\d+)/.exec(fs.readFileSync(`/proc/${pid}/status`, 'utf8'))[1]);
}

// Kilobytes a minute, by least squares.
function slope(points) {
  const mean = (index) => points.reduce((sum, point) => sum + point[index], 0) / points.length;
  const [x, y] = [mean(0), mean(1)];
  return points.reduce((sum, [a, b]) => sum + (a - x) * (b - y), 0) / points.reduce((sum, [a]) => sum + (a - x) ** 2, 0);
}

// Of the server, of the process of the run and of what the page keeps, while 16 traces are shown.
async function memory(browser) {
  const minutes = Number(process.env.STUDIO_MINUTES ?? 20);
  const { studio, page, close } = await openRunning(browser, 16, 1000);
  await showSixteen(page, 4);
  const devtools = await page.context().newCDPSession(page);
  const heap = await metricOf(page, 'JSHeapUsedSize');
  const run = () => Number(fs.readFileSync(`/proc/${studio.child.pid}/task/${studio.child.pid}/children`, 'utf8').trim().split(' ').at(-1));
  const kinds = { server: [], run: [], page: [] };
  const begin = performance.now();
  for (let count = 0; count <= 4 * minutes; ++count) {
    const minute = (performance.now() - begin) / 60000;
    await devtools.send('HeapProfiler.collectGarbage');
    kinds.server.push([minute, residentKilobytes(studio.child.pid)]);
    kinds.run.push([minute, residentKilobytes(run())]);
    kinds.page.push([minute, (await heap()) / 1024]);
    await page.waitForTimeout(15000);
  }
  for (const [kind, points] of Object.entries(kinds)) {
    const settled = points.slice(Math.floor(points.length / 4));
    tell(`memory of the ${kind} after ${settled.at(-1)[0].toFixed(0)} min, and its slope over the last ${(settled.at(-1)[0] - settled[0][0]).toFixed(0)}`,
      `${settled.at(-1)[1].toFixed(0)} KB, ${slope(settled).toFixed(1)} KB a minute`, '0');
  }
  await close();
}

const FIGURES = { startTime, pictures, separateViews, oneTrace, largeGraph };
const LONG = { memory };
const wanted = process.argv.slice(2);
const load = os.loadavg()[0].toFixed(1);
const browser = await startBrowser();
for (const [name, measure] of Object.entries({ ...FIGURES, ...LONG }))
  if (wanted.length === 0 ? name in FIGURES : wanted.includes(name)) await measure(browser);
await browser.close();
fs.rmSync(folder, { recursive: true, force: true }); // made above, by its whole path
console.log(`${os.cpus().length} processors, load ${load} before, ${os.loadavg()[0].toFixed(1)} after`);
for (const { figure, value, goal } of rows) console.log(`| ${figure} | ${value} | ${goal} |`);
