import { Position, type Edge, type Node } from '@xyflow/svelte';
import { arrange } from './layout';
import { findPort, type GraphState, type Instance, type Port } from './protocol';

export interface NodeData extends Record<string, unknown> {
  name: string;
  module: string;
  inputs: Port[];
  outputs: Port[];
  mistakes: string[];
  warnings: string[];
  index: number;
}

export type ModuleNode = Node<NodeData, 'module'>;

export const NODE_WIDTH = 196;
const HEAD_HEIGHT = 46;
const ROW_HEIGHT = 24;

const BORDER = 1;
const FOOT_HEIGHT = 23;
const HANDLE = 11;

// Where the handles of ports are drawn, so that the drawing need not measure what is out of sight.
function handles(inputs: Port[], outputs: Port[]): NonNullable<ModuleNode['handles']> {
  const place = (port: Port, row: number, type: 'target' | 'source') => ({
    id: port.name,
    type,
    position: type === 'target' ? Position.Left : Position.Right,
    x: (type === 'target' ? BORDER : NODE_WIDTH - BORDER) - HANDLE / 2,
    y: BORDER + HEAD_HEIGHT + (row + 0.5) * ROW_HEIGHT - HANDLE / 2,
    width: HANDLE,
    height: HANDLE,
  });
  return [...inputs.map((port, row) => place(port, row, 'target')), ...outputs.map((port, row) => place(port, row, 'source'))];
}

export function nodeHeight(inputs: number, outputs: number): number {
  return HEAD_HEIGHT + Math.max(inputs, outputs, 1) * ROW_HEIGHT + FOOT_HEIGHT;
}

// A module that takes any number of inputs shows one more than are wired.
export function shownInputs(instance: Instance, wired: number): Port[] {
  const inputs = instance.inputs ?? [];
  if (!instance.grows || wired === 0) return inputs;
  const type = inputs[0]?.type ?? '';
  return [...inputs, { name: `Signal ${inputs.length + 1}`, type }];
}

export interface Drawing {
  nodes: ModuleNode[];
  edges: Edge[];
}

// The graph as nodes and edges. Instances without a position get one that fits; what is selected stays so.
export function draw(graph: GraphState, selected: Set<string>, selectedWire: number, label: (wire: number) => string): Drawing {
  const wired = new Map<string, number>();
  for (const wire of graph.wires) wired.set(wire.to[0], (wired.get(wire.to[0]) ?? 0) + 1);
  const inputs = new Map(graph.instances.map((each) => [each.name, shownInputs(each, wired.get(each.name) ?? 0)]));
  const automatic = graph.instances.some((each) => !each.at) ? place(graph, inputs) : new Map();
  const mistakes = byInstance(graph.mistakes);
  const warnings = byInstance(graph.warnings);
  const nodes = graph.instances.map((instance, index): ModuleNode => {
    const own = inputs.get(instance.name)!;
    const outputs = instance.outputs ?? [];
    const [x, y] = instance.at ?? automatic.get(instance.name) ?? [0, 0];
    return {
      id: instance.name,
      type: 'module',
      position: { x, y },
      selected: selected.has(instance.name),
      ariaLabel: `${instance.name}, ${instance.module}`,
      measured: { width: NODE_WIDTH, height: nodeHeight(own.length, outputs.length) },
      handles: handles(own, outputs),
      data: {
        name: instance.name,
        module: instance.module,
        inputs: own,
        outputs,
        mistakes: mistakes.get(instance.name) ?? [],
        warnings: warnings.get(instance.name) ?? [],
        index,
      },
    };
  });
  return { nodes, edges: drawEdges(graph, inputs, selectedWire, label) };
}

function byInstance(notes: GraphState['mistakes']): Map<string, string[]> {
  const texts = new Map<string, string[]>();
  for (const note of notes) if (note.instance) texts.set(note.instance, [...(texts.get(note.instance) ?? []), note.text]);
  return texts;
}

function drawEdges(graph: GraphState, inputs: Map<string, Port[]>, selectedWire: number, label: (wire: number) => string): Edge[] {
  const outputs = new Map(graph.instances.map((each) => [each.name, each.outputs ?? []]));
  const faulty = new Set(graph.mistakes.map((note) => note.wire));
  const edges: Edge[] = [];
  graph.wires.forEach((wire, index) => {
    const from = outputs.get(wire.from[0]) ?? [];
    const to = inputs.get(wire.to[0]) ?? [];
    const output = from[findPort(from, wire.from[1])];
    const input = to[findPort(to, wire.to[1])];
    if (!output || !input) return; // a port that is not there: the text and the list of mistakes show it
    edges.push({
      id: `${wire.from.join('.')}→${wire.to.join('.')}`,
      source: wire.from[0],
      target: wire.to[0],
      sourceHandle: output.name,
      targetHandle: input.name,
      selected: index === selectedWire,
      label: label(index) || undefined,
      class: faulty.has(index) ? 'faulty' : '',
      ariaLabel: `${wire.from.join('.')} → ${wire.to.join('.')}`,
      data: { index },
    });
  });
  return edges;
}

function place(graph: GraphState, inputs: Map<string, Port[]>): Map<string, [number, number]> {
  const sizes = graph.instances.map((each) => ({
    id: each.name,
    width: NODE_WIDTH,
    height: nodeHeight(inputs.get(each.name)!.length, each.outputs?.length ?? 0),
  }));
  const edges = graph.wires.map((wire) => ({ from: wire.from[0], to: wire.to[0] }));
  return new Map([...arrange(sizes, edges)].map(([id, { x, y }]) => [id, [x, y]]));
}

// Positions for all instances, as edits.
export function arrangeAll(graph: GraphState): { instance: string; x: number; y: number }[] {
  const wired = new Map<string, number>();
  for (const wire of graph.wires) wired.set(wire.to[0], (wired.get(wire.to[0]) ?? 0) + 1);
  const inputs = new Map(graph.instances.map((each) => [each.name, shownInputs(each, wired.get(each.name) ?? 0)]));
  return [...place(graph, inputs)].map(([instance, [x, y]]) => ({ instance, x, y }));
}
