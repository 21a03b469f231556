import type { Line, Shown } from './chart';
import type { Picture } from './protocol';
import { amplitudeSpectrum } from './spectrum';

const SIGNAL_COLOURS = 4;

export function colourNumber(index: number): number {
  return (index % SIGNAL_COLOURS) + 1;
}

// Times of signals that began at different moments are those since the first one's start.
function offset(picture: Picture, first: Picture): number {
  return picture.hasRate && picture.start > 0 && first.start > 0 ? (picture.start - first.start) / 1000 : 0;
}

// Columns, the middle of each in seconds since the signal's start, or its number where the signal has no rate.
export function lineOf(picture: Picture, first: Picture, colour: string): Line {
  const per = picture.hasRate ? picture.rate : 1;
  const single = picture.high.length === 0 || picture.perColumn === 1;
  return {
    x0: (picture.first + (picture.perColumn - 1) / 2) / per + offset(picture, first),
    dx: picture.perColumn / per,
    low: picture.low,
    high: single ? picture.low : picture.high,
    base: picture.base,
    colour,
  };
}

function commonUnit(pictures: Picture[]): string {
  const unit = pictures[0]?.unit ?? '';
  return pictures.every((picture) => picture.unit === unit) ? unit : '';
}

export function curves(pictures: Picture[], colours: string[]): Shown {
  const first = pictures[0]!;
  const lines = pictures.map((picture, index) => lineOf(picture, first, colours[index]!));
  const begins = pictures.map((picture, index) => lines[index]!.x0 - ((picture.perColumn - 1) / 2 / picture.perColumn) * lines[index]!.dx);
  const lengths = pictures.map((picture, index) => lines[index]!.dx * Math.max(picture.columns, picture.window, 1));
  const from = Math.min(...begins);
  const to = Math.max(...begins.map((begin, index) => begin + lengths[index]!));
  return { lines, x: [from, to], xUnit: first.hasRate ? 's' : '', yUnit: commonUnit(pictures) };
}

export function spectra(pictures: Picture[], colours: string[]): Shown {
  let most = 0;
  const lines = pictures.map((picture, index): Line => {
    const values = Float64Array.from(picture.low, (value) => value + picture.base);
    const { frequencies, amplitudes } = amplitudeSpectrum(values, picture.rate);
    most = Math.max(most, frequencies.at(-1) ?? 0);
    const dx = frequencies[1] ?? 1;
    return { x0: 0, dx, low: amplitudes, high: amplitudes, base: 0, colour: colours[index]! };
  });
  return { lines, x: [0, most || 1], xUnit: 'Hz', yUnit: commonUnit(pictures) };
}

// From dark to light; 0 is transparent.
const STOPS: [number, number, number][] = [
  [24, 20, 62],
  [59, 49, 128],
  [33, 113, 150],
  [36, 160, 135],
  [150, 205, 80],
  [250, 232, 90],
];

const PALETTE = new Uint32Array(256);
for (let code = 1; code < 256; ++code) {
  const place = ((code - 1) / 254) * (STOPS.length - 1);
  const stop = Math.min(Math.floor(place), STOPS.length - 2);
  const mix = (channel: number) =>
    Math.round(STOPS[stop]![channel]! + (STOPS[stop + 1]![channel]! - STOPS[stop]![channel]!) * (place - stop));
  PALETTE[code] = (255 << 24) | (mix(2) << 16) | (mix(1) << 8) | mix(0);
}

// The levels of a spectrogram are spread over the palette's range of that many dB.
export const SPECTROGRAM_RANGE = 100;

export function levelOf(picture: Picture, column: number, bin: number): number | null {
  const code = picture.levels[column * picture.bins + bin];
  return code ? picture.top - (255 - code) * picture.step : null;
}

export function spectrogram(picture: Picture, pixels: HTMLCanvasElement): Shown {
  const { bins, columns } = picture;
  pixels.width = Math.max(1, columns);
  pixels.height = Math.max(1, bins);
  const image = new ImageData(pixels.width, pixels.height);
  const colours = new Uint32Array(image.data.buffer);
  const spread = 255 / (SPECTROGRAM_RANGE / picture.step);
  for (let column = 0; column < columns; ++column)
    for (let bin = 0; bin < bins; ++bin) {
      const code = picture.levels[column * bins + bin]!;
      const place = code === 0 ? 0 : Math.max(1, Math.round(255 - (255 - code) * spread));
      colours[(bins - 1 - bin) * pixels.width + column] = PALETTE[place]!;
    }
  if (columns > 0) pixels.getContext('2d')!.putImageData(image, 0, 0);
  const per = picture.hasRate ? picture.rate : 1;
  const width = picture.perColumn / per;
  const from = picture.first / per;
  const top = per / 2;
  return {
    lines: [],
    image: { pixels, x: [from, from + columns * width], y: [0, top] },
    x: [from, from + Math.max(picture.window, columns, 1) * width],
    xUnit: picture.hasRate ? 's' : '',
    yUnit: picture.hasRate ? 'Hz' : '',
  };
}

export function coloursFrom(index: number, count: number): string[] {
  return Array.from({ length: count }, (_, each) => `--curve-${colourNumber(index + each)}`);
}
