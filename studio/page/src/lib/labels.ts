// Texts of charts as pixels: the browser writes each once, then it is copied, for the texts of an axis that moves are the same in
// many pictures, and in all charts.

export interface Label {
  width: number; // px of the screen
  height: number;
  pixels: Uint32Array;
}

const SIZE = 12; // px of the page
const MOST_LABELS = 500;
const labels = new Map<string, Label>();
let context: CanvasRenderingContext2D | null = null;

// Colours as the style of the page writes them.
export function labelOf(text: string, colour: string, background: string): Label {
  const key = `${devicePixelRatio} ${colour} ${background} ${text}`;
  const known = labels.get(key);
  if (known) return known;
  if (labels.size >= MOST_LABELS) labels.clear();
  const made = write(text, colour, background);
  labels.set(key, made);
  return made;
}

function write(text: string, colour: string, background: string): Label {
  context ??= document.createElement('canvas').getContext('2d', { alpha: false, willReadFrequently: true })!;
  const { canvas } = context;
  const size = SIZE * devicePixelRatio;
  const font = `${size}px system-ui, 'DejaVu Sans', sans-serif`;
  context.font = font;
  const width = Math.ceil(context.measureText(text).width) + 1;
  const height = Math.ceil(1.3 * size);
  canvas.width = Math.max(canvas.width, width); // which also forgets the font
  canvas.height = Math.max(canvas.height, height);
  context.font = font;
  context.textBaseline = 'middle';
  context.fillStyle = background;
  context.fillRect(0, 0, width, height);
  context.fillStyle = colour;
  context.fillText(text, 0, height / 2);
  return { width, height, pixels: new Uint32Array(context.getImageData(0, 0, width, height).data.buffer) };
}
