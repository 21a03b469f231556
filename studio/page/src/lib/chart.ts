import uPlot from 'uplot';
import { whenColoursChange } from './colours';
import { Painting } from './painting';
import { quantityText } from './numbers';

// Values at x0, x0 + dx, ...: of each the smallest and the largest of a column; the same array for single values.
export interface Line {
  x0: number;
  dx: number;
  low: ArrayLike<number>;
  high: ArrayLike<number>;
  base: number; // which is to be added to them
  colour: string; // the variable of the page's style that has it
}

export interface Picture2D {
  pixels: HTMLCanvasElement; // its rows from above
  x: [number, number];
  y: [number, number];
}

// All that a chart shows at once.
export interface Shown {
  lines: Line[];
  image?: Picture2D;
  x: [number, number];
  xUnit: string;
  yUnit: string;
}

export const LEFT = 76; // px, of the axis
export const RIGHT = 12;

// The range of the line's column nearest to x; null where there is none.
export function valueAt(line: Line, x: number): [number, number] | null {
  const index = Math.round((x - line.x0) / line.dx);
  if (!(index >= 0 && index < line.low.length)) return null;
  const low = line.low[index]! + line.base;
  const high = line.high[index]! + line.base;
  return low <= high && Number.isFinite(low) && Number.isFinite(high) ? [low, high] : null;
}

// From the smallest to the largest value of all lines.
export function extent(lines: Line[]): [number, number] {
  let least = Infinity;
  let most = -Infinity;
  for (const { low, high, base } of lines)
    for (let i = 0; i < low.length; ++i) {
      const bottom = low[i]! + base;
      const top = high[i]! + base;
      if (bottom < least && Number.isFinite(bottom) && bottom <= top) least = bottom;
      if (top > most && Number.isFinite(top) && bottom <= top) most = top;
    }
  return least <= most ? [least, most] : [0, 1];
}

// Stays as it is while the values fit and fill half of it, so that the axis is calm.
export function calmRange(before: [number, number] | null, [least, most]: [number, number]): [number, number] {
  const fits = before && least >= before[0] && most <= before[1] && most - least >= (before[1] - before[0]) / 2.5;
  if (before && fits) return before;
  const room = most > least ? (most - least) * 0.08 : Math.abs(most) * 0.1 || 1;
  return [least - room, most + room];
}

const tickTexts = new Map<string, string>();

// The same few in most pictures.
function tickText(tick: number, unit: string, digits: number): string {
  const key = `${tick} ${unit} ${digits}`;
  let text = tickTexts.get(key);
  if (text !== undefined) return text;
  if (tickTexts.size >= 500) tickTexts.clear();
  tickTexts.set(key, (text = quantityText(tick, unit, digits)));
  return text;
}

// A chart as wide as its place. The library places axes, pointer and selection; what is seen is painted in one pass, straight from
// what came, on a canvas that hides all below it, for which a browser without a graphics processor has least to do.
export class Chart {
  private plot: uPlot;
  private readonly painting: Painting;
  private ticks: { x: number[]; y: number[] } = { x: [], y: [] };
  private readonly observer: ResizeObserver;
  private readonly stopColours: () => void;
  private shown: Shown;
  private y: [number, number];

  constructor(
    place: HTMLElement,
    height: number,
    first: Shown,
    private readonly onhover: (x: number | null) => void,
    private readonly onselect?: (from: number, to: number) => void,
  ) {
    this.shown = first;
    this.y = this.rangeOf(null);
    const none = { show: false };
    const axis = { grid: none, ticks: none };
    this.painting = new Painting();
    this.plot = new uPlot(
      {
        width: place.clientWidth,
        height,
        padding: [8, RIGHT, 0, 0],
        legend: none,
        cursor: { y: false, points: none, drag: { x: onselect !== undefined, y: false, setScale: false } },
        scales: { x: { time: false, range: () => this.shown.x }, y: { range: () => this.y } },
        axes: [
          { ...axis, size: 32, space: 90, values: (_, ticks) => ((this.ticks.x = ticks), []) },
          { ...axis, size: LEFT, values: (_, ticks) => ((this.ticks.y = ticks), []) },
        ],
        series: [{}, { paths: () => null, points: none }],
        hooks: {
          init: [(plot) => this.replaceCanvas(plot)],
          draw: [(plot) => this.paint(plot)],
          setCursor: [(plot) => this.onhover(plot.cursor.left! >= 0 ? plot.posToVal(plot.cursor.left!, 'x') : null)],
          setSelect: [(plot) => this.select(plot)],
        },
      },
      this.data(),
      place,
    );
    this.observer = new ResizeObserver(() => this.plot.setSize({ width: place.clientWidth, height }));
    this.observer.observe(place);
    this.stopColours = whenColoursChange(() => this.plot.redraw(false, true));
  }

  show(shown: Shown): void {
    this.shown = shown;
    this.y = this.rangeOf(this.y);
    this.plot.setData(this.data());
  }

  destroy(): void {
    this.observer.disconnect();
    this.stopColours();
    this.plot.destroy();
  }

  private data(): uPlot.AlignedData {
    return [this.shown.x, this.y];
  }

  private rangeOf(before: [number, number] | null): [number, number] {
    return this.shown.image?.y ?? calmRange(before, extent(this.shown.lines));
  }

  // The library clears its own canvas for each picture, which would be work for the browser although nobody sees it.
  private replaceCanvas({ ctx }: uPlot): void {
    ctx.canvas.replaceWith(this.painting.canvas);
    ctx.clearRect = () => {};
  }

  private select(plot: uPlot): void {
    const { left, width } = plot.select;
    if (width < 2 || !this.onselect) return;
    this.onselect(plot.posToVal(left, 'x'), plot.posToVal(left + width, 'x'));
    plot.setSelect({ left: 0, top: 0, width: 0, height: 0 }, false);
  }

  private paint(plot: uPlot): void {
    const [left, top, width, height] = [plot.bbox.left, plot.bbox.top, plot.bbox.width, plot.bbox.height].map(Math.round) as [number, number, number, number];
    this.painting.paint({
      ...this.shown,
      y: this.y,
      size: { width: Math.round(plot.width * devicePixelRatio), height: Math.round(plot.height * devicePixelRatio) },
      area: { left, top, width, height },
      columns: this.ticks.x.map((tick) => ({ at: Math.round(plot.valToPos(tick, 'x', true)), text: tickText(tick, this.shown.xUnit, 7) })),
      rows: this.ticks.y.map((tick) => ({ at: Math.round(plot.valToPos(tick, 'y', true)), text: tickText(tick, this.shown.yUnit, 4) })),
    });
  }
}
