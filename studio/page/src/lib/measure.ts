import { valueAt, type Line } from './chart';
import { quantityText } from './numbers';

export type Range = [number, number];

// "1 V", or "−1 V … 1 V" of a column of several samples.
export function rangeText(range: Range | null, unit: string): string {
  if (!range) return '–';
  const [low, high] = [quantityText(range[0], unit, 5), quantityText(range[1], unit, 5)];
  return low === high ? low : `${low} … ${high}`;
}

// How much larger the second is than the first: of columns of several samples what it may be.
export function difference(first: Range | null, second: Range | null): Range | null {
  return first && second ? [second[0] - first[1], second[1] - first[0]] : null;
}

export interface Reading {
  name: string;
  x: string;
  values: string[];
}

// What two cursors read, and the difference; with 1/x where x is a time.
export function readCursors(lines: Line[], units: string[], xs: Range, xUnit: string, names: Record<'a' | 'b' | 'difference', string>): Reading[] {
  const at = xs.map((x) => lines.map((line) => valueAt(line, x)));
  const apart = xs[1] - xs[0];
  const inverse = xUnit === 's' && apart !== 0 ? ` (${quantityText(1 / Math.abs(apart), 'Hz', 5)})` : '';
  const row = (name: string, x: string, ranges: (Range | null)[]): Reading => ({
    name,
    x,
    values: ranges.map((range, index) => rangeText(range, units[index] ?? '')),
  });
  return [
    row(names.a, quantityText(xs[0], xUnit, 7), at[0]!),
    row(names.b, quantityText(xs[1], xUnit, 7), at[1]!),
    row(
      names.difference,
      quantityText(apart, xUnit, 5) + inverse,
      at[0]!.map((first, index) => difference(first, at[1]![index]!)),
    ),
  ];
}
