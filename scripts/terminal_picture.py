#!/usr/bin/python3
"""terminal_picture.py FILE.svg [MINUTES]: draws what `trackctl watch` and `trackctl explain` show of
a real run.

The service of a build (OT_BUILD_DIR, default build/release) follows links in a network namespace of
its own, which break and heal for so many minutes (default 24), so that there is something to see;
then one stays broken. Needs root and python3-pyte. Nothing is left behind but the file.
"""

import contextlib
import pathlib
import re
import sys
import time
from html import escape

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "tests/e2e"))
from build_tree import BuildTree  # noqa: E402
from screen import Screen  # noqa: E402
from service import Service  # noqa: E402

TRACKS = """uplink interface wan0 --delay-up 2
backup interface lte0
customers route 203.0.113.0/24
internet or uplink backup
primary and uplink customers
"""
# When a link breaks and for how long, in parts of the whole time.
BREAKS = ((0.07, "wan0", 0.035), (0.24, "lte0", 0.09), (0.40, "wan0", 0.055), (0.56, "wan0", 0.008),
          (0.59, "wan0", 0.008), (0.78, "lte0", 0.02))
COLUMNS = 88

# --- The run --------------------------------------------------------------------------------------


def prepare(service):
    service.start()
    for link in ("wan0", "lte0"):
        service.net.link(link)
    service.net.ip("address add 192.0.2.2/24 dev wan0")
    route(service)
    path = pathlib.Path(service.root, "tracks.conf")
    path.write_text(TRACKS)
    service.ctl("apply", str(path))
    service.wait_state("primary", "up")


def route(service):
    service.net.ip("route replace 203.0.113.0/24 via 192.0.2.1")


def break_and_heal(service, seconds):
    begin = time.monotonic()
    changes = sorted((at * seconds, link, up) for start, link, length in BREAKS
                     for at, up in ((start, False), (start + length, True)))
    for at, link, up in changes:
        time.sleep(max(0.0, begin + at - time.monotonic()))
        service.net.carrier(link, up)
    time.sleep(max(0.0, begin + seconds - time.monotonic()))


def watched(service):
    """The live table some seconds after the uplink has broken."""
    with contextlib.closing(Screen(service, "watch", columns=COLUMNS, rows=8)) as screen:
        screen.wait(lambda lines: lines[-1].startswith("q quit"), 10, "the table")
        service.net.carrier("wan0", False)
        screen.wait(lambda lines: re.search(r"^uplink +down +[4-9]s ", "\n".join(lines), re.M), 20,
                    "down for some seconds")
        return cells(screen, 8)


def explained(service):
    with contextlib.closing(Screen(service, "explain", "primary", columns=COLUMNS, rows=24)) as screen:
        assert screen.wait_end(10) == 0
        return cells(screen, len("\n".join(screen.lines).rstrip().splitlines()))


def cells(screen, rows):
    """Rows of (character, how it looks)."""
    return [[screen.buffer[row][column] for column in range(COLUMNS)] for row in range(rows)]


# --- The picture ----------------------------------------------------------------------------------

WIDE, HIGH = 8.4, 19.0  # of a cell
MARGIN, TITLE = 16.0, 34.0
COLOURS = {"default": "#d5dbe3", "green": "#6cc777", "red": "#f2777a", "brown": "#e5c07b",
           "yellow": "#e5c07b", "blue": "#6fb3f2", "cyan": "#5fc9c9", "magenta": "#c792ea"}
BACKGROUND, FRAME, WORDS = "#171c24", "#2b3340", "#8b96a5"
BLOCKS = "▁▂▃▄▅▆▇█"


def runs(row):
    """Pieces of a row that look the same: (column, text, cell)."""
    begin = 0
    for column in range(1, len(row) + 1):
        if column == len(row) or row[column][1:] != row[begin][1:]:
            yield begin, "".join(cell.data for cell in row[begin:column]), row[begin]
            begin = column


def draw_run(left, base, text, cell):
    colour = COLOURS.get(cell.fg, f"#{cell.fg}")
    if text.strip() and all(letter in BLOCKS + " " for letter in text):
        # Drawn, not written: fonts leave gaps between them.
        for index, letter in enumerate(text):
            if letter != " ":
                high = (BLOCKS.index(letter) + 1) / 8 * (HIGH - 4)
                yield (f'<rect x="{left + index * WIDE:.1f}" y="{base + 3 - high:.1f}" '
                       f'width="{WIDE:.1f}" height="{high:.1f}" fill="{colour}"/>')
        return
    words = text.rstrip()
    if not words:
        return
    start = len(words) - len(words.lstrip())
    words = words.strip()
    weight = ' font-weight="bold"' if cell.bold else ""
    yield (f'<text x="{left + start * WIDE:.1f}" y="{base:.1f}" textLength="{len(words) * WIDE:.1f}" '
           f'lengthAdjust="spacingAndGlyphs" fill="{colour}"{weight}>{escape(words)}</text>')


def draw_terminal(top, command, rows):
    """The lines of one window, and where it ends."""
    width = COLUMNS * WIDE + 2 * MARGIN
    height = TITLE + len(rows) * HIGH + MARGIN
    lines = [f'<rect x="0.5" y="{top + 0.5}" width="{width - 1}" height="{height - 1}" rx="8" '
             f'fill="{BACKGROUND}" stroke="{FRAME}"/>',
             f'<text x="{MARGIN}" y="{top + 22}" fill="{WORDS}">$ {escape(command)}</text>']
    for number, row in enumerate(rows):
        for column, text, cell in runs(row):
            lines += draw_run(MARGIN + column * WIDE, top + TITLE + (number + 1) * HIGH - 5, text, cell)
    return lines, top + height


def draw(windows):
    lines, top = [], 0.0
    for command, rows in windows:
        drawn, bottom = draw_terminal(top, command, rows)
        lines += drawn
        top = bottom + 12
    width, height = COLUMNS * WIDE + 2 * MARGIN, top - 12
    return "\n".join([
        f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width:.0f} {height:.0f}" '
        f'width="{width:.0f}" height="{height:.0f}" font-size="14" xml:space="preserve" '
        'font-family="DejaVu Sans Mono, Menlo, Consolas, monospace">', *lines, "</svg>", ""])


def main(path, minutes="24"):
    with contextlib.closing(Service(BuildTree())) as service:
        prepare(service)
        break_and_heal(service, float(minutes) * 60)
        table = watched(service)
        windows = [("trackctl watch", table), ("trackctl explain primary", explained(service))]
    pathlib.Path(path).write_text(draw(windows), encoding="utf-8")


if __name__ == "__main__":
    main(*sys.argv[1:])
