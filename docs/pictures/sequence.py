#!/usr/bin/env python3
"""Draws a sequence picture: sequence.py FILE.seq > FILE.svg

Lines of a .seq file, in the order of time:
  actor KEY the text of its head      (\\n breaks the line)
  KEY -> KEY text                     a call
  KEY --> KEY text                    something that arrives on another thread
  note KEY text                       a remark beside an actor's line
"""
import html
import re
import sys

COLUMN, ROW, TOP, MARGIN = 235, 38, 74, 110


def main(path):
    actors, rows = {}, []
    for line in open(path, encoding="utf-8"):
        line = line.strip()
        if not line or line.startswith("#"):
            continue
        if match := re.fullmatch(r"actor (\w+) (.*)", line):
            actors[match[1]] = match[2].split("\\n")
        elif match := re.fullmatch(r"note (\w+) (.*)", line):
            rows.append((match[1], "note", match[1], match[2]))
        elif match := re.fullmatch(r"(\w+) (-->|->) (\w+) (.*)", line):
            rows.append((match[1], match[2], match[3], match[4]))
        else:
            sys.exit(f"{path}: cannot read: {line}")
    x = {key: MARGIN + COLUMN * place for place, key in enumerate(actors)}
    width = 2 * MARGIN + COLUMN * (len(actors) - 1) + 70  # room for remarks on the right
    height = TOP + ROW * (len(rows) + 1)
    out = [
        f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" width="{width}" '
        f'height="{height}" font-family="Helvetica, Arial, sans-serif" font-size="12">',
        '<defs><marker id="tip" viewBox="0 0 8 8" refX="8" refY="4" markerWidth="8" '
        'markerHeight="8" orient="auto"><path d="M0 0 8 4 0 8z" fill="#334e68"/></marker></defs>',
        f'<rect width="{width}" height="{height}" fill="white"/>',
    ]
    for key, lines in actors.items():
        out.append(f'<line x1="{x[key]}" y1="50" x2="{x[key]}" y2="{height - 12}" stroke="#9fb3c8"/>')
        out.append(f'<rect x="{x[key] - 98}" y="10" width="196" height="42" rx="6" fill="#dce9f9" '
                   'stroke="#627d98"/>')
        for place, text in enumerate(lines):
            y = 35 + 15 * place - 7 * (len(lines) - 1)
            out.append(f'<text x="{x[key]}" y="{y}" text-anchor="middle">{html.escape(text)}</text>')
    for row, (source, arrow, target, text) in enumerate(rows):
        y = TOP + ROW * row + 16
        text = html.escape(text)
        if arrow == "note":
            out.append(f'<rect x="{x[source] - 104}" y="{y - 15}" width="208" height="22" rx="3" '
                       'fill="#fdf0d5" stroke="#e0c58f"/>')
            out.append(f'<text x="{x[source]}" y="{y}" text-anchor="middle">{text}</text>')
            continue
        dash = ' stroke-dasharray="6 4"' if arrow == "-->" else ""
        if source == target:
            out.append(f'<path d="M{x[source]} {y - 6} h28 v14 h-26" fill="none" stroke="#334e68"'
                       f'{dash} marker-end="url(#tip)"/>')
            out.append(f'<text x="{x[source] + 34}" y="{y + 5}">{text}</text>')
        else:
            out.append(f'<line x1="{x[source]}" y1="{y}" x2="{x[target]}" y2="{y}" stroke="#334e68"'
                       f'{dash} marker-end="url(#tip)"/>')
            out.append(f'<text x="{(x[source] + x[target]) / 2}" y="{y - 5}" '
                       f'text-anchor="middle">{text}</text>')
    out.append("</svg>")
    print("\n".join(out))


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    main(sys.argv[1])
