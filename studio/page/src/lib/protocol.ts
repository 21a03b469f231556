// What the server and the page say to each other (docs/studio.md describes it).

export interface Port {
  name: string;
  type: string;
}

export interface ModuleKind {
  id: string;
  description: string;
  source: boolean;
  inputs: Port[];
  outputs: Port[];
}

export interface Instance {
  name: string;
  module: string;
  line: number;
  settings: { name: string; value: string; line: number }[];
  inputs?: Port[];
  outputs?: Port[];
  source?: boolean;
  grows?: boolean; // takes any number of inputs
  at?: [number, number];
}

export interface Wire {
  from: [string, string]; // instance and port
  to: [string, string];
  line: number;
}

export interface Note {
  text: string;
  line: number; // counted from 1; 0: about the graph as a whole
  instance?: string;
  parameter?: string;
  wire?: number;
}

export interface GraphState {
  state: number; // the version
  form: 'text' | 'xml';
  path: string;
  folder: string; // that the file is in
  text: string;
  changed: boolean;
  canUndo: boolean;
  canRedo: boolean;
  instances: Instance[];
  wires: Wire[];
  mistakes: Note[];
  warnings: Note[];
}

// What became of a change of a live parameter in a run.
export interface LiveSetting {
  instance: string;
  parameter: string;
  value: string;
  block: number;
  refusal: string;
}

export interface RunState {
  running: boolean;
  stopping: boolean;
  number: number;
  realtime?: boolean;
}

// steps, blocks in, blocks out, seconds in its steps
export type ModuleFigures = [number, number, number, number];
// blocks, depth, deepest, trend in blocks a second
export type LineFigures = [number, number, number, number];

export interface Figures {
  busy: number; // the module that is being called
  stuck?: number; // seconds that this call has taken, when the run does not answer
  file?: string; // what it may be waiting for
  seconds?: number;
  modules?: ModuleFigures[];
  lines?: LineFigures[];
}

export interface Result {
  signal: string;
  quantity: string;
  value: number | null;
  unit: string;
}

export interface Report {
  verdict: string;
  reason: string;
  seconds: number;
  warnings: { instance: string; text: string; times: number; line?: number }[];
  messages: { instance: string; text: string; times: number; severity?: string }[];
  mistakes: { file: string; line: number; text: string }[];
  changes?: { instance: string; parameter: string; value: string; block: number }[];
  modules: { instance: string; module: string; blocks_in: number; blocks_out: number; results: Result[] }[];
  lines: { from: string; to: string; blocks: number; deepest_queue: number }[];
}

export type FormValue = string | string[][];

export interface FormItem {
  key: string;
  kind: string;
  value?: FormValue;
  enabled?: false;
  shown?: false;
  label?: string;
  help?: string;
  unit?: string;
  minimum?: number;
  maximum?: number;
  step?: number;
  choices?: string[];
  suggestions?: string[];
  required?: boolean;
  filter?: string; // of files
  columns?: { key: string; kind: string; label?: string; unit?: string; minimum?: number; maximum?: number; choices?: string[] }[];
  parent?: string;
}

export interface Form {
  title?: string;
  items: FormItem[];
}

export interface Answer {
  answer: number;
  ok: boolean;
  text?: string;
  key?: string;
  name?: string;
  version?: number;
  outside?: boolean;
  form?: Form;
  presets?: string[];
  parameters?: Record<string, { live: boolean; allowed: string }>;
}

export type Edit =
  | { kind: 'place'; other: string; name?: string; positions?: Position[] }
  | { kind: 'copy'; name: string; other?: string; positions?: Position[] }
  | { kind: 'remove'; names: string[] }
  | { kind: 'rename'; name: string; other: string }
  | { kind: 'connect' | 'disconnect'; name: string; other: string }
  | { kind: 'move'; positions: Position[] };

export interface Position {
  instance: string;
  x: number;
  y: number;
}

export interface Wish {
  trace: number;
  port: string;
  kind: PictureKind;
  seconds?: number;
  samples?: number;
  triggers?: boolean;
  level?: number;
}

export type PictureKind = 'envelope' | 'samples' | 'level' | 'spectrogram' | 'texts';

// A window of a recording on disk.
export interface RecordingPart {
  whole: boolean; // all that is there was read
  growing: boolean;
  signals: { name: string; port: string; unit: string; rate: number; samples: number; start: number }[];
  first: number; // sample
  perColumn: number;
  low: (number | null)[];
  high: (number | null)[];
}

// A picture of a signal, as docs/studio.md describes it.
export interface Picture {
  key: number;
  kind: PictureKind;
  columns: number;
  window: number; // columns that there is room for
  first: number;
  perColumn: number;
  newest: number;
  start: number; // ms since 1970
  rate: number;
  hasRate: boolean;
  ended: boolean;
  signals: number;
  name: string;
  unit: string;
  base: number;
  low: Float32Array;
  high: Float32Array; // empty for samples
  texts: [number, string][]; // of texts: the number of each in the signal, and the text
  // Of a spectrogram: codes by column and bin, of which 255 is `top` dB and one less `step` dB less; 0: not known.
  levels: Uint8Array;
  bins: number;
  top: number;
  step: number;
}

const VALUES_A_COLUMN: Record<PictureKind, number> = { envelope: 2, samples: 1, level: 2, spectrogram: 0, texts: 0 };

const decoder = new TextDecoder();

// The pictures of a message, which follow one another; none when it is no such message.
export function decodePictures(bytes: ArrayBuffer): Picture[] {
  const pictures: Picture[] = [];
  for (let at = 0; at < bytes.byteLength; ) {
    const found = decodePicture(bytes, at);
    if (!found) return [];
    pictures.push(found.picture);
    at = found.end;
  }
  return pictures;
}

function decodePicture(bytes: ArrayBuffer, at: number): { picture: Picture; end: number } | null {
  if (bytes.byteLength - at < 4) return null;
  const length = new DataView(bytes).getUint32(at, true);
  const begin = at + 4 + length;
  if (length % 4 !== 0 || begin > bytes.byteLength) return null;
  try {
    const header = JSON.parse(decoder.decode(new Uint8Array(bytes, at + 4, length))) as Picture;
    const { columns, texts = [], bins = 0 } = header;
    const count = VALUES_A_COLUMN[header.kind];
    if (count === undefined || !Number.isInteger(columns) || columns < 0 || !Number.isInteger(bins) || bins < 0) return null;
    const codes = header.kind === 'spectrogram' ? columns * bins : 0;
    const end = begin + 4 * columns * count + codes;
    if (end > bytes.byteLength || end % 4 !== 0) return null;
    const low = new Float32Array(bytes, begin, count > 0 ? columns : 0);
    const high = new Float32Array(bytes, begin + 4 * low.length, count === 2 ? columns : 0);
    const levels = new Uint8Array(bytes, begin, codes);
    return { picture: { ...header, low, high, levels, texts, bins }, end };
  } catch {
    return null;
  }
}

export function portText(instance: string, port: string): string {
  return `${instance}.${port}`;
}

// A module that takes any number of inputs calls a single one "Signal" and the first of several "Signal 1";
// either name means either.
export function findPort(ports: Port[], name: string): number {
  const index = ports.findIndex((port) => port.name === name);
  if (index >= 0) return index;
  if (name === 'Signal') return ports.findIndex((port) => port.name === 'Signal 1');
  if (name === 'Signal 1') return ports.findIndex((port) => port.name === 'Signal');
  return -1;
}
