# SPDX-License-Identifier: MIT
"""Draws the figures of script/bench against their bounds, as SVG."""

import math
from xml.sax.saxutils import escape

ROW, TOP, NAME, SCALE, MARGIN = 18, 46, 300, 260, 90
LEAST, MOST = 0.1, 10  # larger and smaller ratios are drawn at the edge; the number shows the value
HELD, SHORT, UNBOUND = "#2a7f62", "#b3261e", "#8a8f98"


def _x(ratio):
    """Returns the horizontal position, on a logarithmic scale."""
    clamped = min(max(ratio, LEAST), MOST)
    share = math.log(clamped / LEAST) / math.log(MOST / LEAST)
    return NAME + share * 2 * SCALE


def _text(x, y, text, colour="#222", anchor="start"):
    return f'<text x="{x:.0f}" y="{y:.0f}" fill="{colour}" text-anchor="{anchor}">{escape(text)}</text>'


def _axis(height):
    lines = []
    for tick in (0.1, 0.2, 0.5, 1, 2, 5, 10):
        lines.append(f'<line x1="{_x(tick):.0f}" y1="{TOP - 8}" x2="{_x(tick):.0f}" y2="{height - 8}" '
                     f'stroke="{"#666" if tick == 1 else "#ddd"}"/>')
        lines.append(_text(_x(tick), TOP - 14, f"{tick:g}", anchor="middle"))
    return lines


def _row(y, name, ratio, bound):
    colour = UNBOUND
    lines = []
    if bound is not None:
        relation, limit = bound
        held = ratio <= limit if relation == "<=" else ratio >= limit
        colour = HELD if held else SHORT
        word = "at most" if relation == "<=" else "at least"
        lines.append(f'<line x1="{_x(limit):.1f}" y1="{y - 12}" x2="{_x(limit):.1f}" y2="{y + 3}" '
                     f'stroke="#222" stroke-width="2"><title>{word} {limit:.2f}</title></line>')
    lines.append(f'<circle cx="{_x(ratio):.1f}" cy="{y - 4}" r="4" fill="{colour}"/>')
    lines.append(_text(NAME - 12, y, name, anchor="end"))
    lines.append(_text(NAME + 2 * SCALE + 12, y, f"{ratio:.3f}", colour))
    return lines


def draw(ratios, bounds):
    """Returns an SVG document with a row per figure: a dot for the ratio, a bar for its bound."""
    names = [name for name in bounds if name in ratios]
    height, width = TOP + ROW * len(names) + 16, NAME + 2 * SCALE + MARGIN
    lines = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" width="{width}" '
             f'height="{height}" font-family="sans-serif" font-size="12">',
             '<title>Measured ratios and their bounds</title>',
             f'<rect width="{width}" height="{height}" fill="#fff"/>',
             _text(NAME, 16, "● held   ● short   ● no bound   | bound")
             .replace("● held", f'<tspan fill="{HELD}">●</tspan> held')
             .replace("● short", f'<tspan fill="{SHORT}">●</tspan> short')
             .replace("● no bound", f'<tspan fill="{UNBOUND}">●</tspan> no bound')]
    lines += _axis(height)
    for number, name in enumerate(names):
        lines += _row(TOP + ROW * number + 12, name, ratios[name], bounds[name])
    return "\n".join([*lines, "</svg>", ""])
