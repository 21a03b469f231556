"""A graph as a drawing: boxes from left to right, in the order of the data."""

from __future__ import annotations

from xml.sax.saxutils import escape

CHARACTER = 7.0  # width, in pixels
ROW = 20.0
GAP_X, GAP_Y, EDGE = 70.0, 24.0, 12.0

STYLE = (
    "text{font:13px sans-serif;fill:#222}.k{font-size:11px;fill:#666}.p{font-size:11px}"
    "rect{fill:#f4f7fb;stroke:#4a6fa5}path{fill:none;stroke:#4a6fa5;stroke-width:1.5}"
)


def _layers(names: list[str], lines: list[tuple[str, str]]) -> dict[str, int]:
    """Behind all that feed it; within a cycle wherever that ends."""
    edges = [(source, target) for source, target in lines if source in names and target in names]
    layer = dict.fromkeys(names, 0)
    for _ in names:
        moved = False
        for source, target in edges:
            if layer[target] <= layer[source] < len(names):
                layer[target], moved = layer[source] + 1, True
        if not moved:
            break
    return layer


def draw(instances: list[tuple[str, str]], lines: list[tuple[str, str]]) -> str:
    """The drawing as SVG. Lines whose instances are missing are left out."""
    split = [(a.partition(".")[::2], b.partition(".")[::2]) for a, b in lines]
    names = [name for name, _ in instances]
    ins = {name: list(dict.fromkeys(b[1] for _, b in split if b[0] == name)) for name in names}
    outs = {name: list(dict.fromkeys(a[1] for a, _ in split if a[0] == name)) for name in names}
    layer = _layers(names, [(a[0], b[0]) for a, b in split])
    boxes: dict[str, tuple[float, float, float, float]] = {}
    parts: list[str] = []
    x = EDGE
    bottom = 2 * EDGE
    for column in sorted(set(layer.values())):
        y = EDGE
        widest = 0.0
        for name, module in instances:
            if layer[name] != column:
                continue
            ports = [len(port) for port in ins[name]] + [0], [len(port) for port in outs[name]] + [0]
            width = CHARACTER * max(len(name), len(module), max(ports[0]) + max(ports[1]) + 3) + 16
            height = 2 * ROW + ROW * max(len(ins[name]), len(outs[name])) + 8
            boxes[name] = (x, y, width, height)
            parts += _box(boxes[name], name, module, ins[name], outs[name])
            y += height + GAP_Y
            widest = max(widest, width)
        x += widest + GAP_X
        bottom = max(bottom, y)
    for (source, output), (target, port) in split:
        if source in boxes and target in boxes:
            parts.append(_line(boxes[source], outs[source].index(output), boxes[target], ins[target].index(port)))
    width, height = max(x - GAP_X + EDGE, 2 * EDGE), bottom - GAP_Y + EDGE
    return (
        f'<svg xmlns="http://www.w3.org/2000/svg" width="{width:g}" height="{height:g}" '
        f'viewBox="0 0 {width:g} {height:g}" role="img"><title>graph</title><style>{STYLE}</style>'
        + "".join(parts)
        + "</svg>"
    )


def _box(
    box: tuple[float, float, float, float], name: str, module: str, ins: list[str], outs: list[str]
) -> list[str]:
    x, y, width, height = box
    parts = [
        f'<rect x="{x:g}" y="{y:g}" width="{width:g}" height="{height:g}" rx="5"/>',
        f'<text x="{x + 8:g}" y="{y + 17:g}">{escape(name)}</text>',
        f'<text class="k" x="{x + 8:g}" y="{y + 34:g}">{escape(module)}</text>',
    ]
    for i, port in enumerate(ins):
        parts.append(f'<text class="p" x="{x + 8:g}" y="{_height(box, i) + 4:g}">{escape(port)}</text>')
    for i, port in enumerate(outs):
        at = f'x="{x + width - 8:g}" y="{_height(box, i) + 4:g}"'
        parts.append(f'<text class="p" text-anchor="end" {at}>{escape(port)}</text>')
    return parts


def _height(box: tuple[float, float, float, float], port: int) -> float:
    return box[1] + 2 * ROW + ROW * (port + 0.5)


def _line(
    source: tuple[float, float, float, float], output: int, target: tuple[float, float, float, float], port: int
) -> str:
    x1, y1 = source[0] + source[2], _height(source, output)
    x2, y2 = target[0], _height(target, port)
    bend = max(GAP_X / 2, abs(x2 - x1) / 2)
    arrow = f"M{x2 - 7:g} {y2 - 4:g}L{x2:g} {y2:g}L{x2 - 7:g} {y2 + 4:g}"
    return f'<path d="M{x1:g} {y1:g}C{x1 + bend:g} {y1:g} {x2 - bend:g} {y2:g} {x2:g} {y2:g}{arrow}"/>'
