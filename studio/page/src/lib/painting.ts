import type { Line, Picture2D } from './chart';
import { colourOf } from './colours';
import { labelOf, type Label } from './labels';

const POINTS_FROM = 8; // px between samples
const GAP = 5; // px between the axis and its texts
const OPAQUE = 0xff000000;

// What a line covers of each column of pixels: from the middle of its upper to that of its lower edge. NaN for none.
export interface Cover {
  top: Float32Array;
  bottom: Float32Array;
}

let cover: Cover = { top: new Float32Array(0), bottom: new Float32Array(0) };

// Columns of the line are joined by the shortest way; a column without a value is a gap. Counts until the next call.
export function coverOf(line: Line, [xLeast, xMost]: [number, number], [yLeast, yMost]: [number, number], width: number, height: number): Cover {
  if (cover.top.length !== width) cover = { top: new Float32Array(width), bottom: new Float32Array(width) };
  const { top, bottom } = cover;
  top.fill(Infinity);
  bottom.fill(-Infinity);
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
  return cover;
}

const colours = new Map<string, number>();

// As an opaque pixel.
function pixelOf(colour: string): number {
  const known = colours.get(colour);
  if (known !== undefined) return known;
  const context = new OffscreenCanvas(1, 1).getContext('2d')!;
  context.fillStyle = colour;
  context.fillRect(0, 0, 1, 1);
  const [red, green, blue] = context.getImageData(0, 0, 1, 1).data;
  const pixel = ((blue! << 16) | (green! << 8) | red! | OPAQUE) >>> 0;
  colours.set(colour, pixel);
  return pixel;
}

// Where lines are painted, in pixels of the canvas.
export interface Area {
  left: number;
  top: number;
  width: number;
  height: number;
}

// A text of an axis, and the column or row of pixels of the canvas that it is at.
export interface Tick {
  at: number;
  text: string;
}

export interface Scene {
  lines: Line[];
  image?: Picture2D;
  x: [number, number];
  y: [number, number];
  size: { width: number; height: number };
  area: Area;
  columns: Tick[];
  rows: Tick[];
}

// A chart as pixels: grid, texts and lines are written into memory, for thousands of short strokes a second that takes a tenth of
// the time that paths take, and the canvas gets all of it at once. It hides what is below it, so that nothing is blended.
export class Painting {
  readonly canvas = document.createElement('canvas');
  private readonly context = this.canvas.getContext('2d', { alpha: false })!;
  private image = new ImageData(1, 1);
  private pixels = new Uint32Array(this.image.data.buffer);

  paint(scene: Scene): void {
    const { size, area } = scene;
    if (area.width < 1 || area.height < 1) return;
    if (this.image.width !== size.width || this.image.height !== size.height) {
      this.image = new ImageData(size.width, size.height);
      this.pixels = new Uint32Array(this.image.data.buffer);
      this.canvas.width = size.width;
      this.canvas.height = size.height;
    }
    this.pixels.fill(pixelOf(colourOf('--panel')));
    this.texts(scene);
    if (!scene.image) this.lines(scene);
    this.context.putImageData(this.image, 0, 0);
    if (scene.image) this.picture(scene.image, scene);
  }

  private texts({ area, columns, rows }: Scene): void {
    const label = (text: string) => labelOf(text, colourOf('--text-soft'), colourOf('--panel'));
    const gap = Math.round(GAP * devicePixelRatio);
    for (const { at, text } of rows) {
      const made = label(text);
      this.copy(made, area.left - gap - made.width, at - (made.height >> 1));
    }
    for (const { at, text } of columns) {
      const made = label(text);
      this.copy(made, at - (made.width >> 1), area.top + area.height + gap);
    }
  }

  private copy(label: Label, left: number, top: number): void {
    const { width, height } = this.image;
    const from = Math.max(0, -left);
    const to = Math.min(label.width, width - left);
    if (from >= to) return;
    for (let row = Math.max(0, -top); row < label.height && top + row < height; ++row)
      this.pixels.set(label.pixels.subarray(row * label.width + from, row * label.width + to), (top + row) * width + left + from);
  }

  private lines({ lines, area, columns, rows, x, y }: Scene): void {
    const stride = this.image.width;
    const thick = Math.max(1, Math.round(devicePixelRatio));
    rule(this.pixels, stride, area, columns, rows, thick);
    for (const line of lines) {
      const colour = pixelOf(colourOf(line.colour));
      fill(this.pixels, stride, area, coverOf(line, x, y, area.width, area.height), colour);
      const step = (line.dx * area.width) / (x[1] - x[0]);
      if (step >= POINTS_FROM * devicePixelRatio && line.low === line.high) this.points(line, colour, area, x, y);
    }
  }

  private points(line: Line, colour: number, { left, top, width, height }: Area, x: [number, number], y: [number, number]): void {
    const half = Math.round(1.5 * devicePixelRatio);
    for (let i = 0; i < line.low.length; ++i) {
      const column = Math.floor(((line.x0 + i * line.dx - x[0]) * width) / (x[1] - x[0]));
      const row = Math.floor(((y[1] - line.base - line.low[i]!) * height) / (y[1] - y[0]));
      for (let dy = -half; dy <= half; ++dy)
        for (let dx = -half; dx <= half; ++dx)
          if (row + dy >= 0 && row + dy < height && column + dx >= 0 && column + dx < width)
            this.pixels[(top + row + dy) * this.image.width + left + column + dx] = colour;
    }
  }

  private picture({ pixels, x, y }: Picture2D, { area, x: xs, y: ys }: Scene): void {
    const { context } = this;
    const perX = area.width / (xs[1] - xs[0]);
    const perY = area.height / (ys[1] - ys[0]);
    context.save();
    context.beginPath();
    context.rect(area.left, area.top, area.width, area.height);
    context.clip();
    context.imageSmoothingEnabled = false;
    context.drawImage(pixels, area.left + (x[0] - xs[0]) * perX, area.top + (ys[1] - y[1]) * perY, (x[1] - x[0]) * perX, (y[1] - y[0]) * perY);
    context.restore();
  }
}

// The lines of the grid, each from its column or row on.
function rule(pixels: Uint32Array, stride: number, { left, top, width, height }: Area, columns: Tick[], rows: Tick[], thick: number): void {
  const colour = pixelOf(colourOf('--grid'));
  for (const { at } of rows)
    for (let row = Math.max(at, top); row < Math.min(at + thick, top + height); ++row)
      pixels.fill(colour, row * stride + left, row * stride + left + width);
  for (const { at } of columns)
    for (let column = Math.max(at, left); column < Math.min(at + thick, left + width); ++column)
      for (let row = top; row < top + height; ++row) pixels[row * stride + column] = colour;
}

// A line as thick as a pixel of the page; where its edge covers a part of a pixel, that is as dark.
function fill(pixels: Uint32Array, stride: number, area: Area, { top, bottom }: Cover, colour: number): void {
  const half = devicePixelRatio / 2;
  for (let column = 0; column < area.width; ++column) {
    const upper = Math.max(0, top[column]! - half);
    const lower = Math.min(area.height, bottom[column]! + half);
    if (!(upper < lower)) continue;
    const first = Math.floor(upper);
    const last = Math.ceil(lower) - 1;
    let at = (area.top + first) * stride + area.left + column;
    pixels[at] = over(pixels[at]!, colour, Math.min(first + 1, lower) - upper);
    for (let row = first + 1; row < last; ++row) pixels[(at += stride)] = colour;
    if (last > first) pixels[at + stride] = over(pixels[at + stride]!, colour, lower - last);
  }
}

// The colour where it covers that share of a pixel.
function over(below: number, colour: number, covered: number): number {
  const share = Math.round(256 * covered);
  const redAndBlue = (((below & 0xff00ff) * (256 - share) + (colour & 0xff00ff) * share) >>> 8) & 0xff00ff;
  const green = (((below & 0xff00) * (256 - share) + (colour & 0xff00) * share) >>> 8) & 0xff00;
  return (redAndBlue | green | OPAQUE) >>> 0;
}
