import { Link } from './link';
import {
  decodePictures,
  portText,
  type Answer,
  type Edit,
  type Figures,
  type GraphState,
  type LiveSetting,
  type ModuleKind,
  type Picture,
  type Report,
  type RunState,
  type Wish,
} from './protocol';
import { fill, wordsOf, type Language, type Words } from './texts';

export type Mode = 'curve' | 'spectrum' | 'spectrogram' | 'level' | 'values' | 'texts';

export interface View {
  id: number;
  ports: string[]; // instance.Output
  mode: Mode;
  seconds: number;
  triggers: boolean;
  level: number;
  held: boolean;
  cursors: boolean;
}

// The part of a recording that is looked at.
export interface RecordingLook {
  instance: string;
  signal: number;
  from: number; // sample
  length: number; // samples; 0 is all
}

export interface Toast {
  id: number;
  kind: 'note' | 'error';
  text: string;
}

const SPECTRUM_SAMPLES = 4096;
const SHOWN_VALUES = 16;
const SHOWN_TEXTS = 200;
const LEVEL_SECONDS = 0.125; // as a sound level meter set to "fast"
const SPECTROGRAM_COLUMNS = 10; // windows of a curve that it shows
const TOAST_TIME = 6000;
const MOST_WISHES = 64; // that the server takes
export const MOST_SIGNALS = 8; // of a view

// Views that show their first signal alone.
export function isSingle(mode: Mode): boolean {
  return mode === 'spectrogram' || mode === 'texts';
}

// What the view wants of each of its signals.
export function wishesOf(view: View): Wish[] {
  const what: Record<Mode, Omit<Wish, 'trace' | 'port'>> = {
    curve: { kind: 'envelope', seconds: view.seconds, triggers: view.triggers, level: view.level },
    spectrum: { kind: 'samples', samples: SPECTRUM_SAMPLES },
    spectrogram: { kind: 'spectrogram', seconds: view.seconds * SPECTROGRAM_COLUMNS },
    level: { kind: 'level', seconds: LEVEL_SECONDS },
    values: { kind: 'samples', samples: SHOWN_VALUES },
    texts: { kind: 'texts', samples: SHOWN_TEXTS },
  };
  const ports = isSingle(view.mode) ? view.ports.slice(0, 1) : view.ports;
  return ports.map((port, index) => ({ trace: view.id * MOST_SIGNALS + index, port, ...what[view.mode] }));
}

// Everything that the page knows, and what it may ask for.
export class Studio {
  connected = $state(false);
  wasConnected = $state(false);
  language = $state<Language>('en');
  readOnly = $state(false);
  modules = $state.raw<ModuleKind[]>([]);
  graph = $state.raw<GraphState | null>(null);
  run = $state.raw<RunState>({ running: false, stopping: false, number: 0 });
  figures = $state.raw<Figures | null>(null);
  rates = $state.raw<number[]>([]); // blocks a second of each line
  report = $state.raw<Report | null>(null);
  verdict = $state('');
  selected = $state<string[]>([]); // names of instances
  selectedWire = $state(-1);
  views = $state<View[]>([]);
  recordings = $state<RecordingLook[]>([]);
  toasts = $state<Toast[]>([]);
  outside = $state(false);
  droppedPictures = $state(0);
  goTo = $state.raw<{ line: number } | null>(null); // for the text view
  words: Words = $derived(wordsOf(this.language));

  private readonly link: Link;
  private readonly name = crypto.randomUUID();
  private keys = new Map<number, number[]>(); // traces by the server's key
  private listeners = new Map<number, (index: number, picture: Picture) => void>(); // by view
  private lastPictures = new Map<number, Picture>();
  private lastToast = 0;
  private lastView = 0;
  private tried = new Map<string, Promise<Answer>>();

  constructor(address: string) {
    this.link = new Link(address, {
      onOpen: () => {
        this.link.send({ do: 'hello', name: this.name });
        this.watch();
      },
      onMessage: (message) => this.take(message),
      onPicture: (bytes) => this.show(bytes),
      onState: (connected) => {
        this.connected = connected;
        this.wasConnected ||= connected;
      },
    });
  }

  // --- The graph

  instance(name: string) {
    return this.graph?.instances.find((each) => each.name === name);
  }

  async change(edits: Edit[], force = false): Promise<Answer> {
    const answer = await this.link.ask({ do: 'change', edits, force });
    if (!answer.ok && answer.text) this.tell('error', answer.text);
    return answer;
  }

  sendText(text: string, version: number): Promise<Answer> {
    return this.link.ask({ do: 'text', text, version });
  }

  // Why a line does not fit; an answer is kept as long as the graph stays as it is.
  tryWire(from: string, to: string): Promise<Answer> {
    const key = `${this.graph?.state} ${from} ${to}`;
    const known = this.tried.get(key);
    if (known) return known;
    if (this.tried.size > 1000) this.tried.clear();
    const asked = this.link.ask({ do: 'try', name: from, other: to });
    this.tried.set(key, asked);
    return asked;
  }

  undo = () => this.report_(this.link.ask({ do: 'undo' }));
  redo = () => this.report_(this.link.ask({ do: 'redo' }));
  form = (instance: string) => this.link.ask({ do: 'form', name: instance });
  set = (instance: string, key: string, value: unknown) =>
    this.link.ask({ do: 'set', name: instance, text: JSON.stringify({ set: { [key]: value } }) });
  press = (instance: string, key: string) =>
    this.link.ask({ do: 'set', name: instance, text: JSON.stringify({ press: key }) });

  files = (path: string) => this.link.ask({ do: 'files', name: path });
  presets = (instance: string) => this.link.ask({ do: 'presets', name: instance });
  keepPreset = (instance: string, preset: string) => this.report_(this.link.ask({ do: 'keep', name: instance, other: preset }));
  loadPreset = async (instance: string, preset: string) =>
    (await this.report_(this.link.ask({ do: 'load', name: instance, other: preset }))).ok;

  async save(force = false, name = ''): Promise<boolean> {
    const answer = await this.link.ask({ do: 'save', force, name });
    if (answer.ok) {
      this.outside = false;
      this.tell('note', this.words.saved);
    } else if (answer.outside) {
      this.outside = true;
    } else if (answer.text) {
      this.tell('error', answer.text);
    }
    return answer.ok;
  }

  async reload(): Promise<void> {
    this.outside = false;
    await this.report_(this.link.ask({ do: 'reload' }));
  }

  start = (realtime: boolean) => this.report_(this.link.ask({ do: 'run', realtime }));
  stop = () => this.report_(this.link.ask({ do: 'stop' }));
  setLanguage = (language: Language) => this.report_(this.link.ask({ do: 'language', name: language }));

  // --- Signals

  // All outputs of the graph, as instance.Output.
  outputs(): string[] {
    return (this.graph?.instances ?? []).flatMap((each) => (each.outputs ?? []).map((port) => portText(each.name, port.name)));
  }

  isFull(): boolean {
    return this.views.reduce((sum, view) => sum + view.ports.length, 0) >= MOST_WISHES;
  }

  tellFull(): void {
    this.tell('error', fill(this.words.tooManySignals, MOST_WISHES));
  }

  addView(port: string): void {
    if (this.isFull()) return this.tellFull();
    const id = ++this.lastView;
    this.views.push({ id, ports: [port], mode: 'curve', seconds: 0.1, triggers: false, level: 0, held: false, cursors: false });
    this.watch();
  }

  removeView(id: number): void {
    this.views = this.views.filter((view) => view.id !== id);
    this.forget(id);
    this.watch();
  }

  // What came for the view is of no use any more.
  forget(id: number): void {
    for (let index = 0; index < MOST_SIGNALS; ++index) this.lastPictures.delete(id * MOST_SIGNALS + index);
  }

  watch(): void {
    this.link.send({ do: 'watch', wishes: this.views.flatMap(wishesOf) });
  }

  recording = (instance: string, signal: number, first: number, count: number) =>
    this.link.ask({ do: 'recording', name: instance, number: signal, first, count });

  openRecording(instance: string): void {
    if (this.recordings.every((each) => each.instance !== instance)) this.recordings.push({ instance, signal: 0, from: 0, length: 0 });
  }

  closeRecording(instance: string): void {
    this.recordings = this.recordings.filter((each) => each.instance !== instance);
  }

  // Called with each picture of the view's signals, and at once with the last ones.
  listen(id: number, listener: (index: number, picture: Picture) => void): () => void {
    this.listeners.set(id, listener);
    for (let index = 0; index < MOST_SIGNALS; ++index) {
      const last = this.lastPictures.get(id * MOST_SIGNALS + index);
      if (last) listener(index, last);
    }
    return () => this.listeners.delete(id);
  }

  // --- Notes

  tell(kind: Toast['kind'], text: string): void {
    const id = ++this.lastToast;
    this.toasts = [...this.toasts.filter((toast) => toast.text !== text), { id, kind, text }].slice(-4);
    setTimeout(() => this.dismiss(id), kind === 'error' ? 2 * TOAST_TIME : TOAST_TIME);
  }

  dismiss(id: number): void {
    this.toasts = this.toasts.filter((toast) => toast.id !== id);
  }

  fill = fill;

  private async report_(asked: Promise<Answer>): Promise<Answer> {
    const answer = await asked;
    if (!answer.ok && answer.text) this.tell('error', answer.text);
    return answer;
  }

  private take(message: Record<string, unknown>): void {
    if ('modules' in message) this.modules = message.modules as ModuleKind[];
    if ('language' in message) this.language = message.language as Language;
    if ('readOnly' in message) this.readOnly = message.readOnly as boolean;
    if ('dropped' in message && typeof message.dropped === 'string') this.tell('error', message.dropped);
    if ('frame' in message) this.droppedPictures = message.dropped as number;
    if ('state' in message) this.takeGraph(message as unknown as GraphState);
    if ('run' in message) this.takeRun(message.run as RunState);
    if ('figures' in message) this.takeFigures(message.figures as Figures);
    if ('set' in message) this.takeChange(message.set as LiveSetting);
    if ('outside' in message) this.outside = true;
    if ('verdict' in message) {
      this.report = message.report as Report | null;
      this.verdict = message.verdict as string;
      if (this.run.running && this.hasFailed()) this.tell('error', this.verdict);
    }
    if ('watching' in message) this.takeKeys(message.watching as { trace: number; key: number }[]);
  }

  hasFailed(): boolean {
    return this.verdict !== '' && this.report?.verdict !== 'complete' && this.report?.verdict !== 'interrupted';
  }

  private takeChange(change: LiveSetting): void {
    const name = `${change.instance}.${change.parameter}`;
    if (change.refusal) this.tell('error', change.refusal);
    else this.tell('note', fill(this.words.changedLive, name, change.value, change.block));
  }

  private takeGraph(graph: GraphState): void {
    this.graph = graph;
    const names = new Set(graph.instances.map((each) => each.name));
    if (this.selected.some((name) => !names.has(name))) this.selected = this.selected.filter((name) => names.has(name));
    if (this.selectedWire >= graph.wires.length) this.selectedWire = -1;
  }

  private takeRun(run: RunState): void {
    if (run.running && run.number !== this.run.number) {
      this.figures = null;
      this.rates = [];
      this.report = null;
      this.verdict = '';
    }
    this.run = run;
  }

  private takeFigures(figures: Figures): void {
    const before = this.figures;
    const passed = (figures.seconds ?? 0) - (before?.seconds ?? 0);
    if (before?.lines && figures.lines && passed > 0)
      this.rates = figures.lines.map((line, index) => (line[0] - (before.lines![index]?.[0] ?? 0)) / passed);
    const { busy, stuck, file } = figures;
    this.figures = figures.lines || !before ? figures : { ...before, busy, stuck, file };
  }

  private takeKeys(watching: { trace: number; key: number }[]): void {
    this.keys.clear();
    for (const { trace, key } of watching) this.keys.set(key, [...(this.keys.get(key) ?? []), trace]);
  }

  private show(bytes: ArrayBuffer): void {
    for (const picture of decodePictures(bytes))
      for (const trace of this.keys.get(picture.key) ?? []) {
        this.lastPictures.set(trace, picture);
        this.listeners.get(Math.floor(trace / MOST_SIGNALS))?.(trace % MOST_SIGNALS, picture);
      }
  }
}

const scheme = location.protocol === 'https:' ? 'wss' : 'ws';
export const studio = new Studio(`${scheme}://${location.host}/live`);
