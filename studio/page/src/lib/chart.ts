import uPlot from 'uplot';
import { colourOf, whenColoursChange } from './colours';
import { LineLayer } from './lineLayer';
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

// A chart as wide as its place, whose axes are those of the library; lines are painted in one pass, straight from what came.
export class Chart {
  private plot: uPlot;
  private readonly layer = new LineLayer();
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
    const axis = { stroke: () => colourOf('--text-soft'), grid: none, ticks: none };
    this.plot = new uPlot(
      {
        width: place.clientWidth,
        height,
        padding: [8, RIGHT, 0, 0],
        legend: none,
        cursor: { y: false, points: none, drag: { x: onselect !== undefined, y: false, setScale: false } },
        scales: { x: { time: false, range: () => this.shown.x }, y: { range: () => this.y } },
        axes: [
          { ...axis, size: 32, space: 90, values: (_, ticks) => (this.ticks.x = ticks).map((tick) => quantityText(tick, this.shown.xUnit, 7)) },
          { ...axis, size: LEFT, values: (_, ticks) => (this.ticks.y = ticks).map((tick) => quantityText(tick, this.shown.yUnit)) },
        ],
        series: [{}, { paths: () => null, points: none }],
        hooks: {
          draw: [() => this.paint()],
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

  private select(plot: uPlot): void {
    const { left, width } = plot.select;
    if (width < 2 || !this.onselect) return;
    this.onselect(plot.posToVal(left, 'x'), plot.posToVal(left + width, 'x'));
    plot.setSelect({ left: 0, top: 0, width: 0, height: 0 }, false);
  }

  private paint(): void {
    const { ctx, bbox } = this.plot;
    const [left, top, width, height] = [bbox.left, bbox.top, bbox.width, bbox.height].map(Math.round) as [number, number, number, number];
    if (this.shown.image) {
      ctx.save();
      ctx.beginPath();
      ctx.rect(left, top, width, height);
      ctx.clip();
      this.paintImage(this.shown.image);
      ctx.restore();
      return;
    }
    const columns = this.ticks.x.map((tick) => Math.round(this.plot.valToPos(tick, 'x', true)) - left);
    const rows = this.ticks.y.map((tick) => Math.round(this.plot.valToPos(tick, 'y', true)) - top);
    this.layer.paint(ctx, { left, top, width, height }, { columns, rows }, this.shown.lines, this.shown.x, this.y);
  }

  private paintImage({ pixels, x, y }: Picture2D): void {
    const { ctx } = this.plot;
    const left = this.plot.valToPos(x[0], 'x', true);
    const top = this.plot.valToPos(y[1], 'y', true);
    ctx.imageSmoothingEnabled = false;
    ctx.drawImage(pixels, left, top, this.plot.valToPos(x[1], 'x', true) - left, this.plot.valToPos(y[0], 'y', true) - top);
  }
}
