import { portText, type Edit, type GraphState, type Position } from './protocol';

const GAP = 40; // px below what is copied

// Copies of instances, below them, with the lines between them, as edits that are forced: a line may be the second input of a
// copy that has no first one. `places` are those of all instances, with their heights.
export function copiesOf(graph: GraphState, names: string[], places: (Position & { height: number })[]): { edits: Edit[]; made: string[] } {
  const taken = new Set(graph.instances.map((each) => each.name));
  const copies = new Map<string, string>();
  for (const name of names) {
    let number = 2;
    while (taken.has(`${name} ${number}`)) ++number;
    copies.set(name, `${name} ${number}`);
    taken.add(`${name} ${number}`);
  }
  const own = places.filter(({ instance }) => copies.has(instance));
  const down = Math.max(...own.map(({ y, height }) => y + height)) - Math.min(...own.map(({ y }) => y)) + GAP;
  const unplaced = places.filter(({ instance }) => !graph.instances.find((each) => each.name === instance)?.at);
  const edits: Edit[] = unplaced.length > 0 ? [{ kind: 'move', positions: unplaced.map(({ instance, x, y }) => ({ instance, x, y })) }] : [];
  for (const { instance, x, y } of own)
    edits.push({ kind: 'copy', name: instance, other: copies.get(instance)!, positions: [{ instance: '', x, y: Math.round(y + down) }] });
  for (const { from, to } of graph.wires)
    if (copies.has(from[0]) && copies.has(to[0]))
      edits.push({ kind: 'connect', name: portText(copies.get(from[0])!, from[1]), other: portText(copies.get(to[0])!, to[1]) });
  return { edits, made: [...copies.values()] };
}
