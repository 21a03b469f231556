import { findPort, type Figures, type GraphState, type RunState } from './protocol';
import { fill, type Words } from './texts';
import { quantityText } from './numbers';

const LONG = 0.5; // seconds of one call

// Why the module does not go on just now, in words; empty when it does, or nobody knows.
export function whyItWaits(index: number, graph: GraphState, figures: Figures | null, run: RunState, words: Words): string {
  if (!run.running || !figures) return '';
  const instance = graph.instances[index];
  if (!instance) return '';
  if (run.realtime && instance.source && !figures.file) return words.waitsForTime;
  const isStuck = (figures.stuck ?? 0) >= LONG;
  if (isStuck && figures.busy === index)
    return figures.file ? fill(words.waitsForFile, figures.file) : fill(words.longCall, quantityText(figures.stuck!, 's', 2));
  if (isStuck) return fill(words.waitsForModule, graph.instances[figures.busy]?.name ?? '?');
  const inputs = instance.inputs ?? [];
  const depths = graph.wires.flatMap((wire, line) =>
    wire.to[0] === instance.name ? [{ port: inputs[findPort(inputs, wire.to[1])]?.name ?? wire.to[1], depth: figures.lines?.[line]?.[1] ?? 0 }] : [],
  );
  const empty = depths.filter(({ depth }) => depth === 0);
  if (empty.length > 0 && empty.length < depths.length)
    return fill(words.waitsForInput, [...new Set(empty.map(({ port }) => port))].join(', '));
  return '';
}
