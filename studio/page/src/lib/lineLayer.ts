import type { Line } from './chart';
import { colourOf } from './colours';

const POINTS_FROM = 8; // px between samples

// What a line covers of each column of pixels: from the middle of its upper to that of its lower edge. NaN for none.
export interface Cover {
  top: Float32Array;
  bottom: Float32Array;
}

// Columns of the line are joined by the shortest way; a column without a value is a gap.
export function coverOf(line: Line, [xLeast, xMost]: [number, number], [yLeast, yMost]: [number, number], width: number, height: number): Cover {
  const top = new Float32Array(width).fill(Infinity);
  const bottom = new Float32Array(width).fill(-Infinity);
  const perX = width / (xMost - xLeast);
  const perY = height / (yMost - yLeast);
  const left = (line.x0 - xLeast) * perX;
  const step = line.dx * perX;
  const zero = (yMost - line.base) * perY;
  const { low, high } = line;
  const begin = Math.max(0, Math.floor(-left / step) - 1);
  const end = Math.min(low.length, Math.ceil((width - left) / step) + 2);
  let beforeTop = NaN;
  let beforeBottom = NaN;
  for (let i = begin, x = left + begin * step; i < end; ++i, x += step) {
    const upper = zero - high[i]! * perY;
    const lower = zero - low[i]! * perY;
    if (!(upper <= lower)) {
      beforeTop = NaN; // a gap
      continue;
    }
    const at = Math.floor(x);
    if (at >= 0 && at < width) {
      if (upper < top[at]!) top[at] = upper;
      if (lower > bottom[at]!) bottom[at] = lower;
    }
    if (beforeTop === beforeTop) {
      // From the end that is nearer; of columns that overlap on the same height.
      const from = upper > beforeBottom ? beforeBottom : lower < beforeTop ? beforeTop : Math.max(upper, beforeTop);
      const to = upper > beforeBottom ? upper : lower < beforeTop ? lower : from;
      const first = Math.max(0, Math.floor(x - step));
      const last = Math.min(width - 1, at);
      const slope = (to - from) / step;
      for (let pixel = first; pixel <= last; ++pixel) {
        const a = from + (Math.max(pixel, x - step) - (x - step)) * slope;
        const b = from + (Math.min(pixel + 1, x) - (x - step)) * slope;
        if (Math.min(a, b) < top[pixel]!) top[pixel] = Math.min(a, b);
        if (Math.max(a, b) > bottom[pixel]!) bottom[pixel] = Math.max(a, b);
      }
    }
    beforeTop = upper;
    beforeBottom = lower;
  }
  return { top, bottom };
}

const colours = new Map<string, number>();

// As the three lower bytes of a pixel.
function pixelOf(colour: string): number {
  const known = colours.get(colour);
  if (known !== undefined) return known;
  const context = new OffscreenCanvas(1, 1).getContext('2d')!;
  context.fillStyle = colour;
  context.fillRect(0, 0, 1, 1);
  const [red, green, blue] = context.getImageData(0, 0, 1, 1).data;
  const pixel = (blue! << 16) | (green! << 8) | red!;
  colours.set(colour, pixel);
  return pixel;
}

// Where a chart's lines are painted in its canvas, in pixels.
export interface Area {
  left: number;
  top: number;
  width: number;
  height: number;
}

// The lines of a chart over its grid, written as pixels: for thousands of short strokes a second that takes a tenth of the time
// that paths take, and a second canvas would cost the browser more than all of it.
export class LineLayer {
  private image: ImageData | null = null;

  paint(context: CanvasRenderingContext2D, area: Area, grid: Grid, lines: Line[], x: [number, number], y: [number, number]): void {
    const { left, top, width, height } = area;
    if (width < 1 || height < 1) return;
    if (this.image?.width !== width || this.image.height !== height) this.image = new ImageData(width, height);
    const pixels = new Uint32Array(this.image.data.buffer);
    pixels.fill(0);
    rule(pixels, grid, width, height);
    for (const line of lines) {
      const colour = pixelOf(colourOf(line.colour));
      fill(pixels, coverOf(line, x, y, width, height), colour, width, height);
      const step = (line.dx * width) / (x[1] - x[0]);
      if (step >= POINTS_FROM * devicePixelRatio && line.low === line.high) this.points(pixels, line, colour, x, y, width, height);
    }
    context.putImageData(this.image, left, top);
  }

  private points(pixels: Uint32Array, line: Line, colour: number, x: [number, number], y: [number, number], width: number, height: number): void {
    const half = Math.round(1.5 * devicePixelRatio);
    for (let i = 0; i < line.low.length; ++i) {
      const column = Math.floor(((line.x0 + i * line.dx - x[0]) * width) / (x[1] - x[0]));
      const row = Math.floor(((y[1] - line.base - line.low[i]!) * height) / (y[1] - y[0]));
      for (let dy = -half; dy <= half; ++dy)
        for (let dx = -half; dx <= half; ++dx)
          if (row + dy >= 0 && row + dy < height && column + dx >= 0 && column + dx < width)
            pixels[(row + dy) * width + column + dx] = (colour | 0xff000000) >>> 0;
    }
  }
}

// Columns and rows of pixels in which the grid's lines begin.
export interface Grid {
  columns: number[];
  rows: number[];
}

function rule(pixels: Uint32Array, { columns, rows }: Grid, width: number, height: number): void {
  const colour = (pixelOf(colourOf('--grid')) | 0xff000000) >>> 0;
  const thick = Math.max(1, Math.round(devicePixelRatio));
  for (const row of rows) if (row >= 0) pixels.fill(colour, row * width, Math.min(row + thick, height) * width);
  for (const column of columns)
    for (let each = Math.max(0, column); each < Math.min(column + thick, width); ++each)
      for (let at = each; at < pixels.length; at += width) pixels[at] = colour;
}

// A line as thick as a pixel of the page; where its edge covers a part of a pixel, that is as dark.
function fill(pixels: Uint32Array, { top, bottom }: Cover, colour: number, width: number, height: number): void {
  const half = devicePixelRatio / 2;
  const opaque = (colour | 0xff000000) >>> 0;
  for (let column = 0; column < width; ++column) {
    const upper = Math.max(0, top[column]! - half);
    const lower = Math.min(height, bottom[column]! + half);
    if (!(upper < lower)) continue;
    const first = Math.floor(upper);
    const last = Math.ceil(lower) - 1;
    for (let row = first, at = first * width + column; row <= last; ++row, at += width) {
      const covered = Math.min(row + 1, lower) - Math.max(row, upper);
      if (covered >= 1) {
        pixels[at] = opaque;
        continue;
      }
      const alpha = Math.round(255 * covered);
      pixels[at] = pixels[at] === 0 ? (colour | (alpha << 24)) >>> 0 : over(pixels[at]!, colour, covered);
    }
  }
}

// The colour over another line's pixel.
function over(below: number, colour: number, share: number): number {
  let pixel = Math.max(below >>> 24, Math.round(255 * share)) << 24;
  for (let shift = 0; shift < 24; shift += 8) {
    const old = (below >>> shift) & 255;
    pixel |= Math.round(old + (((colour >>> shift) & 255) - old) * share) << shift;
  }
  return pixel >>> 0;
}
