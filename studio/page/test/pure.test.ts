import { describe, expect, it } from 'vitest';
import { copiesOf } from '../src/lib/copies';
import { arrange } from '../src/lib/layout';
import { clockText, columnTexts, placeText, quantityText } from '../src/lib/numbers';
import type { GraphState } from '../src/lib/protocol';
import { groupModules, searchModules } from '../src/lib/search';
import { amplitudeSpectrum } from '../src/lib/spectrum';

describe('the spectrum', () => {
  it('shows a sine of 3 V at 125 Hz with its amplitude, and a constant at 0 Hz', () => {
    const samples = Array.from({ length: 1024 }, (_, i) => 2 + 3 * Math.sin((2 * Math.PI * 125 * i) / 8000));
    const { frequencies, amplitudes } = amplitudeSpectrum(samples, 8000);
    expect(frequencies[16]).toBeCloseTo(125, 9);
    expect(amplitudes[16]).toBeCloseTo(3, 9);
    expect(amplitudes[0]).toBeCloseTo(2, 9);
    expect(amplitudes[200]).toBeLessThan(1e-9);
  });

  it('takes the newest power of two of samples', () => {
    const samples = [1e9, ...new Array<number>(8).fill(1)];
    expect(amplitudeSpectrum(samples, 8).amplitudes[0]).toBeCloseTo(1, 9);
  });
});

describe('copies of several modules', () => {
  it('have names that are free, a place below, and the lines between them alone', () => {
    const instances = ['tone', 'tone 2', 'low', 'levels'].map((name) => ({ name, module: '', line: 1, settings: [], at: [0, 0] as [number, number] }));
    const wire = (from: string, to: string) => ({ from: [from, 'Signal'], to: [to, 'Signal'], line: 1 });
    const graph = { instances, wires: [wire('tone', 'low'), wire('low', 'levels')] } as unknown as GraphState;
    const places = instances.map(({ name }, index) => ({ instance: name, x: 300 * index, y: 10, height: 90 }));
    const { edits, made } = copiesOf(graph, ['tone', 'low'], places);
    expect(made).toEqual(['tone 3', 'low 2']);
    expect(edits).toEqual([
      { kind: 'copy', name: 'tone', other: 'tone 3', positions: [{ instance: '', x: 0, y: 140 }] },
      { kind: 'copy', name: 'low', other: 'low 2', positions: [{ instance: '', x: 600, y: 140 }] },
      { kind: 'connect', name: 'tone 3.Signal', other: 'low 2.Signal' },
    ]);
  });
});

describe('the layout', () => {
  const node = (id: string, height = 100) => ({ id, width: 200, height });

  it('places every module right of what feeds it, and none over another', () => {
    const nodes = ['sum', 'a', 'b', 'filter', 'plot', 'alone'].map((id, index) => node(id, 60 + 40 * index));
    const edges = [
      { from: 'a', to: 'sum' },
      { from: 'b', to: 'filter' },
      { from: 'filter', to: 'sum' },
      { from: 'sum', to: 'plot' },
      { from: 'a', to: 'plot' },
    ];
    const at = arrange(nodes, edges);
    for (const { from, to } of edges) expect(at.get(to)!.x).toBeGreaterThanOrEqual(at.get(from)!.x + 200);
    for (const one of nodes)
      for (const other of nodes) {
        if (one === other || at.get(one.id)!.x !== at.get(other.id)!.x) continue;
        const [upper, lower] = at.get(one.id)!.y < at.get(other.id)!.y ? [one, other] : [other, one];
        expect(at.get(upper.id)!.y + upper.height).toBeLessThanOrEqual(at.get(lower.id)!.y);
      }
  });

  it('places modules of a cycle, and those of lines that lead nowhere', () => {
    const at = arrange([node('a'), node('b'), node('c')], [
      { from: 'b', to: 'c' },
      { from: 'c', to: 'b' },
      { from: 'a', to: 'gone' },
    ]);
    expect([...at.keys()].sort()).toEqual(['a', 'b', 'c']);
  });

  it('places 500 modules in a chain in a moment', () => {
    const nodes = Array.from({ length: 500 }, (_, index) => node(String(index)));
    const edges = nodes.slice(1).map((each, index) => ({ from: String(index), to: each.id }));
    expect(arrange(nodes, edges).get('499')!.x).toBe(499 * (200 + 110));
  });
});

describe('numbers for people', () => {
  it.each([
    [3000, 'Hz', '3 kHz'],
    [0.02, 's', '20 ms'],
    [1e-7, 'V', '100 nV'],
    [-1.5, 'V', '−1.5 V'],
    [50, '%', '50 %'],
    [0, 's', '0 s'],
    [0.001, 's', '1 ms'],
    [0.99999999, 'V', '1 V'],
    [1000.4, '%', '1000 %'],
    [12, '', '12'],
    [NaN, 'V', 'NaN V'],
  ])('%d %s is %s', (value, unit, text) => expect(quantityText(value, unit)).toBe(text));

  it('tells the time of a sample from the start and its position', () => {
    expect(clockText(Date.UTC(2026, 2, 1, 12), 3.21)).toBe('12:00:03.210');
  });
});

describe('numbers below each other', () => {
  it.each([
    [[0.5, -0.0035, 0], 'V', ['500.0 mV', '−3.5 mV', '0.0 mV']],
    [[1.25, 12], '%', ['1.25 %', '12.00 %']],
    [[3, -12000], 'Hz', ['0.00 kHz', '−12.00 kHz']],
    [[4, 5], '', ['4', '5']],
    [[2e-20, 1], '', ['0.000', '1.000']],
    [[1e300, NaN], '', ['1e+300', 'NaN']],
  ])('%j %s are %j', (values, unit, texts) => expect(columnTexts(values, unit, 4)).toEqual(texts));

  it('have places of one width, and the number of the sample without a rate', () => {
    expect([0, 24000, 48001].map((sample) => placeText(sample, 48000))).toEqual(['0.00000 s', '0.50000 s', '1.00002 s']);
    expect(placeText(7, 1)).toBe('7 s');
    expect(placeText(7, 0)).toBe('7');
  });
});

describe('the search for modules', () => {
  const module = (id: string, description: string) => ({ id, description, source: false, inputs: [], outputs: [] });
  const all = [module('BusJoin', 'makes a bus'), module('Filter', 'filters signals'), module('Spectrum', 'low frequencies')];
  it('finds all words in name or purpose, those in the name first', () => {
    expect(searchModules(all, 'f').map((each) => each.id)).toEqual(['Filter', 'Spectrum']);
    expect(searchModules(all, ' FILTERS  signals').map((each) => each.id)).toEqual(['Filter']);
    expect(searchModules(all, 'nothing')).toEqual([]);
    expect(searchModules(all, '')).toHaveLength(3);
  });

  it('has them in the order in which one needs them: sources, processing, results', () => {
    const port = [{ name: 'Signal', type: '' }];
    const grouped = groupModules([{ ...all[0]!, inputs: port }, { ...all[1]!, inputs: port, outputs: port }, { ...all[2]!, outputs: port }]);
    expect(grouped.map(([group, modules]) => [group, ...modules.map((each) => each.id)])).toEqual([
      ['sources', 'Spectrum'],
      ['processing', 'Filter'],
      ['results', 'BusJoin'],
    ]);
  });
});
