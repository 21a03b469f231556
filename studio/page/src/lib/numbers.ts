// Numbers and quantities for people.

const PREFIXES: [number, string][] = [
  [1e12, 'T'],
  [1e9, 'G'],
  [1e6, 'M'],
  [1e3, 'k'],
  [1, ''],
  [1e-3, 'm'],
  [1e-6, 'µ'],
  [1e-9, 'n'],
  [1e-12, 'p'],
];

export function numberText(value: number, digits = 6): string {
  if (!Number.isFinite(value)) return Number.isNaN(value) ? 'NaN' : value > 0 ? '∞' : '−∞';
  if (Number.isInteger(value) && Math.abs(value) < 1e15) return String(value).replace('-', '−');
  const text = value.toPrecision(digits);
  const plain = text.includes('e') ? text.replace(/\.?0+e/, 'e') : text.includes('.') ? text.replace(/\.?0+$/, '') : text;
  return plain.replace('-', '−');
}

// Units that take a prefix of a thousand; others (%, dB, 1/s) stay beside the number.
const SCALED = /^(s|V|A|Hz|Pa|W|N|m|g|F|Ω|T|J|K)$/;

function scaleOf(size: number): [number, string] {
  return PREFIXES.find(([each]) => size >= each) ?? PREFIXES[PREFIXES.length - 1]!;
}

// "3 kHz", "20 ms"
export function quantityText(value: number, unit: string, digits = 4): string {
  if (!SCALED.test(unit) || value === 0 || !Number.isFinite(value))
    return unit ? `${numberText(value, digits)} ${unit}` : numberText(value, digits);
  const size = Math.abs(Number(value.toPrecision(digits))) * (1 + 1e-12);
  const [factor, prefix] = scaleOf(size);
  return `${numberText(value / factor, digits)} ${prefix}${unit}`;
}

// The time of a sample of a signal that began at `start` (ms since 1970): "12:00:03.210".
export function clockText(start: number, seconds: number): string {
  const time = new Date(start + seconds * 1000);
  return Number.isNaN(time.getTime()) ? '' : time.toISOString().slice(11, 23);
}

// Where a sample is in its signal: "3.20000 s" with as many decimals as its neighbours need to differ, so that the text keeps its
// width; its number where the signal has no rate (0).
export function placeText(sample: number, rate: number): string {
  if (!(rate > 0)) return String(sample);
  return `${(sample / rate).toFixed(Math.min(6, Math.max(0, Math.ceil(Math.log10(rate)))))} s`;
}

// Quantities that are read below each other: one prefix, and as many decimals as the largest has with so many digits.
export function columnTexts(values: number[], unit: string, digits: number): string[] {
  const most = values.reduce((largest, value) => (Number.isFinite(value) ? Math.max(largest, Math.abs(value)) : largest), 0);
  const [factor, prefix] = SCALED.test(unit) && most > 0 ? scaleOf(most * (1 + 1e-12)) : ([1, ''] as const);
  const size = most / factor;
  const isPlain = size === 0 || (size >= 1e-6 && size < 1e9);
  const whole = values.every((value) => !Number.isFinite(value) || Number.isInteger(value / factor));
  const decimals = whole ? 0 : Math.max(0, Math.min(12, digits - 1 - Math.floor(Math.log10(size))));
  return values.map((value) => {
    const text = isPlain && Number.isFinite(value) ? (value / factor).toFixed(decimals).replace('-', '−') : numberText(value / factor, digits);
    return unit ? `${text} ${prefix}${unit}` : text;
  });
}
