"""Figures as tables in Markdown and as drawings in SVG, and their place in the documentation."""

import math
import pathlib
import platform
import re
import statistics
from xml.sax.saxutils import escape

from .processes import PROJECT

DOCUMENT = PROJECT / "docs/performance.md"
COLOURS = ("#1f6fb2", "#c4572a", "#3c8a4e", "#8455a8")
_FRAME = ('<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {0} {1}" width="{0}" height="{1}" '
          'font-family="sans-serif" font-size="12" fill="#222">\n'
          '<rect width="100%" height="100%" fill="white"/>\n{2}</svg>\n')


class Spread:
    """The middle of some values, and how far they reach."""

    def __init__(self, values):
        self.median = statistics.median(values)
        self.lowest, self.highest = min(values), max(values)

    def __str__(self):
        return f"{self.median:.3f} ({self.lowest:.3f} to {self.highest:.3f})"


def table(header, rows):
    lines = [header, ["---"] * len(header), *rows]
    return "".join("| " + " | ".join(str(cell) for cell in line) + " |\n" for line in lines)


def machine():
    """The processor and the system that the figures belong to."""
    info = pathlib.Path("/proc/cpuinfo").read_text()
    model = re.search(r"model name\s*: (.*)|$", info).group(1) or platform.machine()
    cores = len(re.findall(r"^processor", info, re.MULTILINE))
    virtual = ", in a virtual machine" if "hypervisor" in info else ""
    return f"{model}, {cores} cores{virtual}, Linux {platform.release().split('-')[0]}"


def write_section(name, text, drawings):
    """Replaces what stands between the marks of a section in docs/performance.md, and its drawings
    beside it."""
    content = DOCUMENT.read_text()
    begin, end = f"<!-- {name}: begin -->\n", f"<!-- {name}: end -->"
    head, found, rest = content.partition(begin)
    _, closed, tail = rest.partition(end)
    if not found or not closed:
        raise ValueError(f"{DOCUMENT} has no section {name}")
    for drawing, svg in drawings.items():
        (DOCUMENT.parent / drawing).write_text(svg)
    DOCUMENT.write_text(head + begin + text.rstrip("\n") + "\n" + end + tail)


def _text(x, y, words, anchor="middle", extra=""):
    return f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}" {extra}>{escape(words)}</text>\n'


def _line(x1, y1, x2, y2, colour="#ddd", width=1.0, extra=""):
    return (f'<line x1="{x1:.1f}" y1="{y1:.1f}" x2="{x2:.1f}" y2="{y2:.1f}" stroke="{colour}" '
            f'stroke-width="{width}" {extra}/>\n')


def _ticks(lowest, highest, steps):
    """Round numbers for a logarithmic axis, the outer ones outside of what is drawn."""
    values = [step * 10.0**power for power in range(math.floor(math.log10(lowest)),
                                                   math.ceil(math.log10(highest)) + 1)
              for step in steps]
    first = max((value for value in values if value <= lowest), default=values[0])
    last = min((value for value in values if value >= highest), default=values[-1])
    return [value for value in values if first <= value <= last]


def _logarithmic(ticks, begin, end):
    """From a value to a place between `begin` and `end`."""
    first, span = math.log(ticks[0]), math.log(ticks[-1] / ticks[0])
    return lambda value: begin + (end - begin) * (math.log(value) - first) / span


def growth_drawing(title, across, upwards, curves):
    """Curves over one quantity, both axes logarithmic: what grows in proportion rises by as much as
    it goes to the right. `curves` are (name, [(x, y), ...])."""
    width, height, left, right, top, bottom = 640, 380, 64, 170, 40, 48
    places = sorted({x for _, points in curves for x, _ in points})
    values = [y for _, points in curves for _, y in points]
    y_ticks = _ticks(min(values), max(values), (1, 2, 5))
    to_x = _logarithmic((places[0], places[-1]), left, width - right)
    to_y = _logarithmic(y_ticks, height - bottom, top)
    drawing = _text(left, 22, title, "start", 'font-weight="bold"')
    for x in places:
        drawing += _line(to_x(x), top, to_x(x), height - bottom)
        drawing += _text(to_x(x), height - bottom + 18, f"{x:g}")
    for y in y_ticks:
        drawing += _line(left, to_y(y), width - right, to_y(y))
        drawing += _text(left - 8, to_y(y) + 4, f"{y:g}", "end")
    drawing += _text((left + width - right) / 2, height - 10, across)
    drawing += _text(0, 0, upwards, extra=f'transform="translate(16 {height / 2}) rotate(-90)"')
    for index, (name, points) in enumerate(curves):
        colour = COLOURS[index % len(COLOURS)]
        path = " ".join(f"{to_x(x):.1f},{to_y(y):.1f}" for x, y in points)
        drawing += f'<polyline points="{path}" fill="none" stroke="{colour}" stroke-width="2"/>\n'
        for x, y in points:
            drawing += f'<circle cx="{to_x(x):.1f}" cy="{to_y(y):.1f}" r="3" fill="{colour}"/>\n'
        drawing += _line(width - right + 12, top + 20 * index, width - right + 30, top + 20 * index,
                         colour, 2)
        drawing += _text(width - right + 36, top + 20 * index + 4, name, "start")
    return _FRAME.format(width, height, drawing)


def ratio_drawing(title, rows):
    """One line a comparison: its spread on a logarithmic axis, its bound as a mark. `rows` are
    (name, Spread, bound or None)."""
    left, right, top, step = 330, 90, 48, 26
    width, height = 820, top + step * len(rows) + 44
    lowest = min(min(spread.lowest, bound or spread.lowest) for _, spread, bound in rows)
    highest = max(1.0, max(spread.highest for _, spread, _ in rows))
    ticks = _ticks(lowest, highest, (1, 2, 5))
    to_x = _logarithmic(ticks, left, width - right)
    bottom = top + step * len(rows)
    drawing = _text(16, 24, title, "start", 'font-weight="bold"')
    for value in ticks:
        drawing += _line(to_x(value), top - 8, to_x(value), bottom)
        drawing += _text(to_x(value), bottom + 16, f"{value:g}")
    drawing += _text((left + width - right) / 2, bottom + 34,
                     "ours / other, lowest to highest; the red mark is the bound")
    for index, (name, spread, bound) in enumerate(rows):
        y = top + step * (index + 0.5)
        drawing += _text(left - 12, y + 4, name, "end")
        drawing += _line(to_x(spread.lowest), y, to_x(spread.highest), y, COLOURS[0], 3)
        drawing += f'<circle cx="{to_x(spread.median):.1f}" cy="{y}" r="5" fill="{COLOURS[0]}"/>\n'
        drawing += _text(width - right + 12, y + 4, f"{spread.median:.3f}", "start")
        if bound:
            drawing += _line(to_x(bound), y - 9, to_x(bound), y + 9, "#cc2222", 2)
    return _FRAME.format(width, height, drawing)
