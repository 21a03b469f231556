// Places the nodes of a graph in columns from the sources on, with few crossing lines.

export interface LayoutNode {
  id: string;
  width: number;
  height: number;
}

export interface LayoutEdge {
  from: string;
  to: string;
}

const COLUMN_GAP = 110;
const ROW_GAP = 40;
const SWEEPS = 4;

export function arrange(nodes: LayoutNode[], edges: LayoutEdge[]): Map<string, { x: number; y: number }> {
  const known = new Set(nodes.map((node) => node.id));
  const usable = edges.filter((edge) => known.has(edge.from) && known.has(edge.to) && edge.from !== edge.to);
  const columns = columnsOf(nodes, usable);
  orderColumns(columns, usable);
  const size = new Map(nodes.map((node) => [node.id, node]));
  const placed = new Map<string, { x: number; y: number }>();
  const heights = columns.map((column) => column.reduce((sum, id) => sum + size.get(id)!.height + ROW_GAP, -ROW_GAP));
  const tallest = Math.max(0, ...heights);
  let x = 0;
  columns.forEach((column, index) => {
    let y = (tallest - heights[index]!) / 2;
    for (const id of column) {
      placed.set(id, { x: Math.round(x), y: Math.round(y) });
      y += size.get(id)!.height + ROW_GAP;
    }
    x += Math.max(0, ...column.map((id) => size.get(id)!.width)) + COLUMN_GAP;
  });
  return placed;
}

// The column of a node is the length of the longest way to it; nodes of a cycle come last.
function columnsOf(nodes: LayoutNode[], edges: LayoutEdge[]): string[][] {
  const before = new Map(nodes.map((node) => [node.id, 0]));
  const after = new Map<string, string[]>(nodes.map((node) => [node.id, []]));
  for (const edge of edges) {
    before.set(edge.to, before.get(edge.to)! + 1);
    after.get(edge.from)!.push(edge.to);
  }
  const depth = new Map(nodes.map((node) => [node.id, 0]));
  const ready = nodes.filter((node) => before.get(node.id) === 0).map((node) => node.id);
  const done = new Set<string>();
  for (let at = 0; at < ready.length; ++at) {
    const id = ready[at]!;
    done.add(id);
    for (const next of after.get(id)!) {
      depth.set(next, Math.max(depth.get(next)!, depth.get(id)! + 1));
      before.set(next, before.get(next)! - 1);
      if (before.get(next) === 0) ready.push(next);
    }
  }
  const deepest = Math.max(0, ...[...done].map((id) => depth.get(id)!));
  const columns: string[][] = [];
  for (const node of nodes) {
    const column = done.has(node.id) ? depth.get(node.id)! : deepest + 1;
    (columns[column] ??= []).push(node.id);
  }
  return Array.from(columns, (column) => column ?? []);
}

// Each node near the middle of its neighbours in the column before, then after, some times over.
function orderColumns(columns: string[][], edges: LayoutEdge[]): void {
  const neighbours = new Map<string, string[]>();
  for (const { from, to } of edges) {
    neighbours.set(from, [...(neighbours.get(from) ?? []), to]);
    neighbours.set(to, [...(neighbours.get(to) ?? []), from]);
  }
  const rank = new Map<string, number>();
  const number = (column: string[]) => column.forEach((id, index) => rank.set(id, index / Math.max(1, column.length - 1)));
  columns.forEach(number);
  for (let sweep = 0; sweep < SWEEPS; ++sweep) {
    for (const column of sweep % 2 === 0 ? columns : [...columns].reverse()) {
      const wish = new Map(
        column.map((id) => {
          const near = neighbours.get(id) ?? [];
          const sum = near.reduce((total, other) => total + rank.get(other)!, 0);
          return [id, near.length > 0 ? sum / near.length : rank.get(id)!];
        }),
      );
      column.sort((a, b) => wish.get(a)! - wish.get(b)!);
      number(column);
    }
  }
}
