// One trace of 1000 columns in a streaming plot of Bokeh, in the same browser. Its script alone takes part, with values that the
// page makes: no server, nothing on a wire.
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';

const VERSION = '3.10.0';

// The folder of its scripts, which npm gets when it is not there; null without it.
function scripts() {
  const folder = process.env.STUDIO_BENCH_FOLDER;
  if (!folder) return null;
  const found = path.join(folder, 'node_modules/@bokeh/bokehjs/build/js');
  if (fs.existsSync(found)) return found;
  try {
    fs.mkdirSync(folder, { recursive: true });
    fs.writeFileSync(path.join(folder, 'package.json'), '{"private": true}\n');
    execFileSync('npm', ['install', '--no-audit', '--no-fund', '--ignore-scripts', `@bokeh/bokehjs@${VERSION}`], { cwd: folder, stdio: 'ignore' });
    return found;
  } catch {
    return null;
  }
}

// In the page: as many new columns each time as 60 a second need for a window of 100 ms, low and high as lines.
async function stream() {
  const { Bokeh } = window;
  const source = new Bokeh.ColumnDataSource({ data: { x: [], low: [], high: [] } });
  const figure = Bokeh.Plotting.figure({ width: 1250, height: 232, y_range: new Bokeh.Range1d({ start: -1.1, end: 1.1 }), tools: '' });
  for (const y of ['low', 'high']) figure.line({ field: 'x' }, { field: y }, { source });
  await Bokeh.Plotting.show(figure, document.body);
  window.paintings = 0;
  let counted = false;
  const stroke = CanvasRenderingContext2D.prototype.stroke;
  CanvasRenderingContext2D.prototype.stroke = function (...args) {
    if (!counted) {
      counted = true; // all strokes of one picture of the browser are one painting
      ++window.paintings;
      requestAnimationFrame(() => (counted = false));
    }
    return stroke.apply(this, args);
  };
  const COLUMNS = 1000;
  let made = 0;
  let due = 0;
  const add = () => {
    const [x, low, high] = [[], [], []];
    for (due += COLUMNS / 0.1 / 60; made < due; ++made) {
      const time = made / (COLUMNS / 0.1);
      x.push(time);
      low.push(Math.sin(2 * Math.PI * 50 * time));
      high.push(low.at(-1) + 0.01);
    }
    source.stream({ x, low, high }, COLUMNS);
    requestAnimationFrame(add);
  };
  requestAnimationFrame(add);
}

// Null where it cannot be had.
export async function measureBokeh(browser, paintingRate) {
  const folder = scripts();
  if (!folder) return null;
  const context = await browser.newContext({ viewport: { width: 1600, height: 1000 } });
  const page = await context.newPage();
  for (const name of ['bokeh.min.js', 'bokeh-api.min.js']) await page.addScriptTag({ path: path.join(folder, name) });
  await page.evaluate(stream);
  await page.waitForTimeout(1000);
  const measured = await paintingRate(page, 1);
  await context.close();
  return measured;
}
