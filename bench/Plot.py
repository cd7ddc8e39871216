"""Line charts as SVG: the same numbers give the same file."""

import html
import math

FONT = "font-family=\"sans-serif\""
INK, QUIET, GRID = "#14202c", "#5b6875", "#e3e8ee"
COLOURS = ["#1f5fa8", "#c8641e", "#2a7d3f", "#8a949e"]
LEFT, RIGHT, TOP, BOTTOM = 58, 18, 34, 44


def number(value):
    return f"{value:.1f}".rstrip("0").rstrip(".")


def nice_steps(largest, wanted=4):
    """Round steps from 0 to beyond `largest`."""
    step = 10 ** math.floor(math.log10(largest / wanted))
    step *= next(factor for factor in (1, 2, 2.5, 5, 10) if largest / (step * factor) <= wanted + 0.5)
    return [step * i for i in range(math.ceil(largest / step) + 1)]


def power(value):
    exponent = round(math.log10(value))
    return f'10<tspan dy="-5" font-size="9">{exponent}</tspan>'


class Panel:
    """A chart of several lines; `series` are (name, [(x, y), ...])."""

    def __init__(self, title, x_title, y_title, series, logarithmic=False, x_ticks=None):
        self.title, self.x_title, self.y_title = title, x_title, y_title
        self.series, self.logarithmic = series, logarithmic
        xs = sorted({x for _, points in series for x, _ in points})
        self.x_ticks = x_ticks or xs
        self.x_range = (min(xs), max(xs)) if logarithmic else (0, max(xs))
        self.y_ticks = nice_steps(max(y for _, points in series for _, y in points))

    def draw(self, left, top, width, height):
        scale = math.log10 if self.logarithmic else float
        low, high = (scale(x) for x in self.x_range)
        inner_width, inner_height = width - LEFT - RIGHT, height - TOP - BOTTOM

        def at_x(x):
            return left + LEFT + (scale(x) - low) / (high - low) * inner_width

        def at_y(y):
            return top + TOP + inner_height - y / self.y_ticks[-1] * inner_height

        out = [f'<text x="{left + LEFT}" y="{top + 18}" font-size="14" font-weight="bold" fill="{INK}">'
               f'{html.escape(self.title)}</text>']
        for y in self.y_ticks:
            out.append(f'<line x1="{left + LEFT}" y1="{number(at_y(y))}" x2="{left + width - RIGHT}" '
                       f'y2="{number(at_y(y))}" stroke="{GRID}"/>')
            out.append(f'<text x="{left + LEFT - 8}" y="{number(at_y(y) + 4)}" text-anchor="end">{number(y)}</text>')
        for x in self.x_ticks:
            label = power(x) if self.logarithmic else number(x)
            out.append(f'<line x1="{number(at_x(x))}" y1="{top + height - BOTTOM}" x2="{number(at_x(x))}" '
                       f'y2="{top + height - BOTTOM + 5}" stroke="{QUIET}"/>')
            out.append(f'<text x="{number(at_x(x))}" y="{top + height - BOTTOM + 19}" text-anchor="middle">'
                       f'{label}</text>')
        out.append(f'<line x1="{left + LEFT}" y1="{top + height - BOTTOM}" x2="{left + width - RIGHT}" '
                   f'y2="{top + height - BOTTOM}" stroke="{QUIET}"/>')
        out.append(f'<text x="{number(left + LEFT + inner_width / 2)}" y="{top + height - 8}" text-anchor="middle">'
                   f'{html.escape(self.x_title)}</text>')
        middle = number(top + TOP + inner_height / 2)
        out.append(f'<text x="{left + 14}" y="{middle}" text-anchor="middle" '
                   f'transform="rotate(-90 {left + 14} {middle})">{html.escape(self.y_title)}</text>')
        for (_, points), colour in zip(self.series, COLOURS):
            path = " ".join(f"{number(at_x(x))},{number(at_y(y))}" for x, y in points)
            out.append(f'<polyline points="{path}" fill="none" stroke="{colour}" stroke-width="2.2" '
                       'stroke-linejoin="round"/>')
            out += [f'<circle cx="{number(at_x(x))}" cy="{number(at_y(y))}" r="3" fill="#fff" stroke="{colour}" '
                    'stroke-width="2"/>' for x, y in points]
        return out


def write(path, description, panels, columns=1, width=860, height=300):
    """Writes the panels, `columns` beside each other, below a legend of their series."""
    rows = math.ceil(len(panels) / columns)
    each = width // columns
    legend = 34
    total = legend + rows * height
    out = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {total}" {FONT} font-size="12" '
           f'fill="{QUIET}" role="img">', f"<title>{html.escape(description)}</title>",
           f'<rect width="{width}" height="{total}" fill="#fff"/>']
    x = LEFT
    for (name, _), colour in zip(panels[0].series, COLOURS):
        out.append(f'<line x1="{x}" y1="20" x2="{x + 22}" y2="20" stroke="{colour}" stroke-width="3"/>')
        out.append(f'<text x="{x + 28}" y="24" font-size="13" fill="{INK}">{html.escape(name)}</text>')
        x += 28 + 8 * len(name) + 24
    for i, panel in enumerate(panels):
        out += panel.draw(i % columns * each, legend + i // columns * height, each, height)
    path.write_text("\n".join(out) + "\n</svg>\n")
