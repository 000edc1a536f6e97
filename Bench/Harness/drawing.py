"""The picture of the results: for each measure a bar for each peer."""
from xml.sax.saxutils import escape

DRAWN = (("connect", "median, ms"), ("true", "median, ms"), ("cat", "median, ms"),
         ("zeros", "MB/s"), ("csv", "MB/s"), ("send-zeros", "MB/s"))
WIDTH, BAR, LABEL, NUMBER, GAP = 860, 16, 190, 70, 30
COLUMN = (WIDTH - GAP) // 2
LONGEST = 12  # times the shortest bar; others are cut, and show a gap
COLOURS = {"SSHSession": "#2f6db5", "bare libssh2": "#8a8a8a"}
OTHERS = "#c9a25b"


def text(x, y, words, more=""):
    return f'<text x="{x}" y="{y}" {more}>{escape(words)}</text>'


def bar(row, y, unit, most):
    colour = COLOURS.get(row.title.partition(",")[0], OTHERS)
    length = min(row.value, most) * unit
    parts = [text(LABEL - 8, y + 12, row.title, 'text-anchor="end"'),
             f'<rect x="{LABEL}" y="{y}" width="{length:.1f}" height="{BAR - 3}" fill="{colour}"/>',
             text(round(LABEL + length + 5), y + 12, f"{row.value:.{row.digits}f}")]
    if row.value > most:
        parts.append(f'<path d="M{LABEL + length - 16:.1f} {y + BAR - 3} l5 -{BAR - 3} h4 l-5 {BAR - 3}'
                     ' z" fill="white"/>')
    return parts


def panel(title, rows):
    """Its parts, and its height."""
    values = [row.value for row in rows]
    most = min(max(values), LONGEST * min(values))
    parts = [text(0, 14, title, 'font-weight="bold"')]
    for number, row in enumerate(rows):
        parts += bar(row, 24 + BAR * number, (COLUMN - LABEL - NUMBER) / most, most)
    return parts, 24 + BAR * len(rows) + GAP


def drawing(measures, rows):
    """An SVG document."""
    titles = {measure.name: measure.title.replace("`", "") for measure in measures}
    parts, tops = [], [GAP // 2, GAP // 2]
    for name, quantity in DRAWN:
        shown = [row for row in rows if (row.measure, row.quantity) == (name, quantity)]
        if not shown:
            continue
        side = tops.index(min(tops))
        inner, height = panel(f"{titles[name]}: {quantity}", shown)
        parts += [f'<g transform="translate({side * (COLUMN + GAP)},{tops[side]})">', *inner, "</g>"]
        tops[side] += height
    head = (f'<svg xmlns="http://www.w3.org/2000/svg" width="{WIDTH}" height="{max(tops)}" '
            'font-family="sans-serif" font-size="11">')
    ground = f'<rect width="{WIDTH}" height="{max(tops)}" fill="white"/>'
    return "\n".join([head, ground, *parts, "</svg>"]) + "\n"
