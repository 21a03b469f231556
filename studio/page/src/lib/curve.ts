import type { Picture } from './protocol';

// Columns ready to be drawn: the middle of each in seconds since the signal's start, or its number where the
// signal has no rate. Columns without a value (null) are gaps.
export interface Curve {
  x: number[];
  low: (number | null)[];
  high: (number | null)[];
}

export function curveOf(picture: Picture): Curve {
  const per = picture.hasRate ? picture.rate : 1;
  const middle = (picture.perColumn - 1) / 2;
  const count = picture.columns;
  const curve: Curve = { x: new Array(count), low: new Array(count), high: new Array(count) };
  const highs = picture.high.length > 0 ? picture.high : picture.low;
  for (let i = 0; i < count; ++i) {
    curve.x[i] = (picture.first + i * picture.perColumn + middle) / per;
    const low = picture.low[i]! + picture.base;
    const high = highs[i]! + picture.base;
    const isThere = Number.isFinite(low) && Number.isFinite(high);
    curve.low[i] = isThere ? low : null;
    curve.high[i] = isThere ? high : null;
  }
  return curve;
}
