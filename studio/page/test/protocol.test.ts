import { describe, expect, it } from 'vitest';
import { curveOf } from '../src/lib/curve';
import { decodePicture, findPort } from '../src/lib/protocol';

// A picture as the server writes it: length, header padded with blanks to four bytes, floats.
function encode(header: object, values: number[]): ArrayBuffer {
  let text = JSON.stringify(header);
  while (text.length % 4 !== 0) text += ' ';
  const bytes = new ArrayBuffer(4 + text.length + 4 * values.length);
  new DataView(bytes).setUint32(0, text.length, true);
  new Uint8Array(bytes, 4).set(new TextEncoder().encode(text));
  values.forEach((value, index) => new DataView(bytes).setFloat32(4 + text.length + 4 * index, value, true));
  return bytes;
}

const HEADER = { key: 3, kind: 'envelope', columns: 2, first: 100, perColumn: 10, rate: 1000, hasRate: true, base: 5 };

describe('a picture', () => {
  it('has its minima and maxima back, at the times of the middle of each column', () => {
    const picture = decodePicture(encode(HEADER, [-1, -2, 1, 2]))!;
    expect(curveOf(picture)).toEqual({ x: [0.1045, 0.1145], low: [4, 3], high: [6, 7] });
  });

  it('has a gap where a column has no finite value', () => {
    const picture = decodePicture(encode(HEADER, [Infinity, -2, -Infinity, 2]))!;
    expect(curveOf(picture).low).toEqual([null, 3]);
  });

  it('is refused when its values are not those of its header', () => {
    expect(decodePicture(encode(HEADER, [1, 2, 3]))).toBeNull();
    expect(decodePicture(encode({ ...HEADER, columns: -1 }, []))).toBeNull();
    expect(decodePicture(new ArrayBuffer(2))).toBeNull();
    expect(decodePicture(new Uint8Array([255, 255, 255, 255, 0]).buffer)).toBeNull();
  });
});

describe('the ports of a module with any number of inputs', () => {
  const ports = (...names: string[]) => names.map((name) => ({ name, type: '' }));
  it.each([
    [ports('Signal 1', 'Signal 2'), 'Signal', 0],
    [ports('Signal'), 'Signal 1', 0],
    [ports('Signal'), 'Signal 2', -1],
    [ports('x', 'Signal 2'), 'Signal 2', 1],
  ])('%j has %s at %i', (given, name, index) => expect(findPort(given, name)).toBe(index));
});
