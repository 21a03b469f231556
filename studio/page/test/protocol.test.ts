import { describe, expect, it } from 'vitest';
import { extent, valueAt } from '../src/lib/chart';
import { coverOf } from '../src/lib/painting';
import { difference, readCursors } from '../src/lib/measure';
import { decodePictures, findPort, type Figures, type GraphState } from '../src/lib/protocol';
import { lineOf } from '../src/lib/shown';
import { wordsOf } from '../src/lib/texts';
import { whyItWaits } from '../src/lib/waits';

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

const decodePicture = (bytes: ArrayBuffer) => decodePictures(bytes)[0];

describe('a picture', () => {
  it('has its minima and maxima back, at the times of the middle of each column', () => {
    const picture = decodePicture(encode(HEADER, [-1, -2, 1, 2]))!;
    const line = lineOf(picture, picture, 'red');
    expect(line.x0).toBeCloseTo(0.1045, 12);
    expect(line.dx).toBeCloseTo(0.01, 12);
    expect([valueAt(line, 0.104), valueAt(line, 0.113), valueAt(line, 0.2)]).toEqual([[4, 6], [3, 7], null]);
    expect(extent([line])).toEqual([3, 7]);
  });

  it('follows another one in the same message', () => {
    const [one, two] = [encode(HEADER, [-1, -2, 1, 2]), encode({ ...HEADER, key: 4, kind: 'samples' }, [7, 8])];
    const both = new Uint8Array([...new Uint8Array(one), ...new Uint8Array(two)]).buffer;
    expect(decodePictures(both).map(({ key, low }) => [key, ...low])).toEqual([[3, -1, -2], [4, 7, 8]]);
    expect(decodePictures(both.slice(0, -4))).toEqual([]);
  });

  it('has a gap where a column has no finite value', () => {
    const picture = decodePicture(encode(HEADER, [Infinity, -2, -Infinity, 2]))!;
    const line = lineOf(picture, picture, 'red');
    expect([valueAt(line, 0.1045), valueAt(line, 0.1145)]).toEqual([null, [3, 7]]);
    expect(extent([line])).toEqual([3, 7]);
  });

  it('is placed by the start of its signal, that of the first being zero', () => {
    const first = decodePicture(encode({ ...HEADER, start: 1000 }, [0, 0, 0, 0]))!;
    const later = decodePicture(encode({ ...HEADER, start: 1500 }, [0, 0, 0, 0]))!;
    expect(lineOf(later, first, 'red').x0).toBeCloseTo(0.6045, 12);
  });

  it('of a spectrogram has a code for each bin of each column', () => {
    const header = { ...HEADER, kind: 'spectrogram', columns: 2, bins: 4, top: 10, step: 0.5 };
    expect(decodePicture(encode(header, [0, 0]))!.levels.length).toBe(8);
    expect(decodePicture(encode({ ...header, bins: 5 }, [0, 0]))).toBeUndefined();
    expect(decodePicture(encode({ ...header, kind: 'film' }, [0, 0]))).toBeUndefined();
  });

  it('is refused when its values are not those of its header', () => {
    expect(decodePicture(encode(HEADER, [1, 2, 3]))).toBeUndefined();
    expect(decodePicture(encode({ ...HEADER, columns: -1 }, []))).toBeUndefined();
    expect(decodePicture(new ArrayBuffer(2))).toBeUndefined();
    expect(decodePicture(new Uint8Array([255, 255, 255, 255, 0]).buffer)).toBeUndefined();
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

describe('two cursors', () => {
  const low = [1, 2, 8];
  const line = { x0: 0, dx: 0.01, low, high: [1, 4, 9], base: 0, colour: '' };

  it('read their values, and of coarse columns all that the difference may be', () => {
    expect(difference([2, 4], [8, 9])).toEqual([4, 7]);
    const readings = readCursors([line], ['V'], [0, 0.02], 's', { a: 'A', b: 'B', difference: 'D' });
    expect(readings.map(({ x }) => x)).toEqual(['0 s', '20 ms', '20 ms (50 Hz)']);
    expect(readings.map(({ values }) => values[0])).toEqual(['1 V', '8 V … 9 V', '7 V … 8 V']);
  });
});

describe('the reason why a module waits', () => {
  const words = wordsOf('en');
  const ports = (...names: string[]) => names.map((name) => ({ name, type: '' }));
  const graph = {
    instances: [
      { name: 'a', inputs: [], outputs: ports('Signal'), source: true },
      { name: 'b', inputs: [], outputs: ports('Signal'), source: true },
      { name: 'sum', inputs: ports('Signal 1', 'Signal 2'), outputs: [] },
    ],
    wires: [
      { from: ['a', 'Signal'], to: ['sum', 'Signal 1'] },
      { from: ['b', 'Signal'], to: ['sum', 'Signal 2'] },
    ],
  } as unknown as GraphState;
  const run = { running: true, stopping: false, number: 1 };
  const figures = (depths: number[], more: Partial<Figures> = {}): Figures => ({
    busy: -1,
    seconds: 10,
    modules: [[1, 0, 1, 1], [1, 0, 1, 1], [1, 1, 0, 1]],
    lines: depths.map((depth) => [5, depth, depth, 0]),
    ...more,
  });

  it.each([
    ['an input without blocks while another has some', 2, figures([3, 0]), run, 'waits for input Signal 2'],
    ['nothing', 2, figures([0, 0]), run, ''],
    ['a file', 0, figures([0, 0], { busy: 0, stuck: 2, file: '/dev/ttyS0' }), run, 'waits for /dev/ttyS0'],
    ['its own work', 0, figures([0, 0], { busy: 0, stuck: 2 }), run, 'at work on one block for 2 s'],
    ['the one that is at work', 1, figures([0, 0], { busy: 0, stuck: 2 }), run, 'waits for a'],
    ['real time', 1, figures([0, 0]), { ...run, realtime: true }, 'waits for its time'],
    ['nothing when it does not run', 2, figures([3, 0]), { ...run, running: false }, ''],
  ])('is %s', (_, index, now, state, text) => expect(whyItWaits(index, graph, now, state, words)).toBe(text));
});

describe('a line in pixels', () => {
  const line = (low: number[], high = low) => ({ x0: 0, dx: 1, low, high, base: 0, colour: '' });
  const cover = (of: ReturnType<typeof line>, width: number) => {
    const { top, bottom } = coverOf(of, [0, of.low.length], [0, 10], width, 10);
    return Array.from(top, (value, index) => (value <= bottom[index]! ? [value, bottom[index]] : null));
  };

  it('shows one sample in thousands, and gaps', () => {
    const low = new Array<number>(5000).fill(5);
    low[1234] = 1;
    low.fill(NaN, 4000);
    const shown = cover(line(low), 50);
    expect(shown[12]).toEqual([5, 9]);
    expect(shown[11]).toEqual([5, 5]);
    expect(shown[45]).toBeNull();
  });

  it('joins samples that are far apart by straight lines', () => {
    const shown = cover(line([0, 10]), 8); // 4 px from one to the other
    expect(shown.slice(0, 5)).toEqual([[7.5, 10], [5, 7.5], [2.5, 5], [0, 2.5], [0, 0]]);
  });

  it('joins columns that do not touch', () => {
    const shown = cover(line([1, 6], [2, 7]), 2);
    expect(shown).toEqual([[4, 9], [3, 4]]);
  });
});
