"""The chart of docs/performance.md."""
import itertools

import claims

BAR = 15  # pixels from one bar to the next
LEFT, SCALE, LONGEST, TOP = 330, 200, 2.6, 40


def chart(all_rows):
    """One bar per benchmark with a baseline: its ratio; a line marks the baseline."""
    rows = [row for row in all_rows if "ratio" in row]
    groups = [(name, list(of)) for name, of in itertools.groupby(rows, lambda row: row.group)]
    width = LEFT + int(SCALE * LONGEST) + 50
    height = TOP + BAR * (len(rows) + 2 * len(groups)) + 20
    lines = [
        f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" '
        'font-family="sans-serif" font-size="11">',
        f'<rect width="{width}" height="{height}" fill="white"/>',
        '<text x="8" y="18" font-size="13">Time as a multiple of the baseline '
        '(orange: above the target)</text>',
    ]
    for tick in (0, 0.5, 1, 1.5, 2, 2.5):
        x = LEFT + tick * SCALE
        colour = "#444" if tick == 1 else "#ddd"
        lines.append(f'<line x1="{x}" y1="{TOP - 8}" x2="{x}" y2="{height - 16}" '
                     f'stroke="{colour}"/>')
        lines.append(f'<text x="{x}" y="{height - 4}" text-anchor="middle" fill="#666">'
                     f'{tick}</text>')
    y = TOP
    for name, members in groups:
        y += BAR
        lines.append(f'<text x="8" y="{y + 10}" font-weight="bold">{name}</text>')
        y += BAR
        for row in members:
            colour = "#c60" if claims.above_target(row) else "#38a"
            bar = min(row["ratio"], LONGEST) * SCALE
            lines.append(f'<text x="{LEFT - 6}" y="{y + 10}" text-anchor="end">{row.case}</text>')
            lines.append(f'<rect x="{LEFT}" y="{y + 2}" width="{bar:.1f}" height="{BAR - 4}" '
                         f'fill="{colour}"/>')
            lines.append(f'<text x="{LEFT + bar + 4:.1f}" y="{y + 11}" fill="#333">'
                         f'{row["ratio"]:.2f}</text>')
            y += BAR
    return "\n".join(lines + ["</svg>", ""])
