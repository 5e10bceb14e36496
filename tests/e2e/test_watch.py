"""`trackctl watch` on terminals of several sizes."""

import re
import signal

import pytest

from screen import Screen


@pytest.fixture
def office(service):
    service.net.link("lan0")
    for name in ("office", "printer"):
        service.ctl("set", name, "interface", "lan0")
    service.ctl("set", "spare", "interface", "mark-dn")
    service.wait_state("office", "up")
    service.wait_state("spare", "down")
    return service


@pytest.fixture
def watch(office):
    screens = []

    def start(*arguments, **options):
        screens.append(Screen(office, "watch", *arguments, **options))
        return screens[-1]

    yield start
    for screen in screens:
        screen.close()


def settled(lines):
    """The screen with what goes on by itself taken out."""
    text = "\n".join(lines)
    text = re.sub(r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d", "NOW", text)
    text = re.sub(r"(up|down|unknown) ( +)\S+( +\d+)", r"\1 \2AGE\3", text)
    return re.sub(r"  +[▁▂▃▄▅▆▇█ ]+$", "  LINE", text, flags=re.M).splitlines()


def row(lines, name):
    found = [line for line in lines if line.startswith(name + " ")]
    return found[0].split() if found else ["", "", "", ""]


@pytest.mark.parametrize("columns,rows", [(80, 24), (200, 50)])
def test_the_whole_screen(office, watch, columns, rows):
    screen = watch(columns=columns, rows=rows)
    screen.wait(lambda lines: row(lines, "spare")[1] == "down" and lines[4].endswith("▁")
                and lines[-1] == "q quit",
                office.build.patience, "the whole table")  # the last line is drawn last
    lines = screen.lines
    assert settled(lines[:1]) == ["3 tracks: 2 up, 1 down, 0 unknown   NOW"]
    assert lines[1] == "Track    State       For  Flaps  Last hour"
    assert [line.split()[:2] + line.split()[3:4] for line in lines[2:5]] == [
        ["office", "up", "0"], ["printer", "up", "0"], ["spare", "down", "0"]]
    assert lines[2].endswith("█") and lines[4].endswith("▁")
    # A minute a part where there is room for an hour.
    assert len(lines[2]) == (80 if columns == 80 else 33 + 60)
    assert lines[5:rows - 1] == [""] * (rows - 6)
    assert lines[rows - 1] == "q quit"
    assert screen.buffer[2][9].fg == "green" and screen.buffer[4][9].fg == "red"
    assert screen.cursor_hidden


def test_changes_are_seen_while_the_window_is_resized(office, watch):
    screen = watch()
    patience = office.build.patience
    screen.wait(lambda lines: row(lines, "office")[1] == "up", patience, "the table")
    for flap, (columns, rows) in enumerate([(200, 50), (40, 10), (12, 4), (80, 24)], start=1):
        office.net.ip("link set lan0 down")
        screen.resize(columns, rows)
        office.net.up("lan0")
        screen.wait(lambda lines: lines[-1].startswith("q quit"), patience, "the new size")
        if columns >= 40:
            screen.wait(lambda lines, flap=flap: all(
                row(lines, name)[1::2][:2] == ["up", str(flap)] for name in ("office", "printer")),
                        patience, f"{flap} flaps")
        assert all(len(line) <= columns for line in screen.lines)


def test_tracks_come_and_go(office, watch):
    screen = watch()
    patience = office.build.patience
    screen.wait(lambda lines: lines[0].startswith("3 tracks"), patience, "the table")
    office.ctl("set", "new", "interface", "lan0")
    screen.wait(lambda lines: row(lines, "new")[1] == "up", patience, "the new track")
    office.ctl("delete", "spare")
    screen.wait(lambda lines: not any("spare" in line for line in lines), patience, "one less")


def test_more_tracks_than_rows_are_scrolled(office, watch):
    names = [f"t{number:03}" for number in range(100)]
    office.configure(names, "lan0")
    screen = watch(*names)
    patience = office.build.patience
    screen.wait(lambda lines: "1-21 of 100" in lines[-1], patience, "the first page")
    assert screen.lines[2].startswith("t000 ")
    for keys, first in (("\033[6~", 22), ("j", 23), ("\033OB", 24), ("k", 23), ("G", 80),
                        ("\033[5~", 59), ("g", 1)):
        screen.type(keys)
        screen.wait(lambda lines, first=first: f"{first}-{first + 20} of 100" in lines[-1],
                    patience, f"row {first}")
    assert screen.lines[2].startswith("t000 ")


def given_back(screen):
    """The terminal is as it was: lines are edited and echoed, and the cursor is seen."""
    return screen.modes == screen.cooked and not screen.cursor_hidden


@pytest.mark.parametrize("end,status", [
    (lambda screen: screen.type("q"), 0),
    (lambda screen: screen.type("\003"), -signal.SIGINT),
    (lambda screen: screen.signal(signal.SIGTERM), -signal.SIGTERM),
], ids=["q", "Ctrl-C", "SIGTERM"])
def test_its_end(office, watch, end, status):
    screen = watch()
    screen.wait(lambda lines: row(lines, "office")[1] == "up", office.build.patience, "the table")
    end(screen)
    assert screen.wait_end(office.build.patience) == status
    assert given_back(screen)


def test_the_service_goes_away(office, watch):
    screen = watch()
    screen.wait(lambda lines: row(lines, "office")[1] == "up", office.build.patience, "the table")
    office.stop()
    assert screen.wait_end(office.build.patience) == 3
    assert given_back(screen)
    assert any("trackctl: following events: the service has gone" in line
               for line in screen.lines), screen.lines


def test_without_colours_and_without_block_characters(office, watch):
    screen = watch(LC_ALL="C", NO_COLOR="1")
    screen.wait(lambda lines: row(lines, "spare")[1] == "down" and lines[4].endswith("_"),
                office.build.patience, "the table up to its end")
    assert screen.lines[2].endswith("#")
    assert screen.buffer[2][9].fg == "default"


def test_what_is_no_terminal_is_refused(office, watch):
    result = office.run("trackctl", "watch")
    assert result.returncode == 2
    assert "it needs a terminal; `trackctl events` follows in lines" in result.stderr
    for names in (["nobody"], ["office", "nobody"]):
        screen = watch(*names)
        assert screen.wait_end(office.build.patience) == 1
        assert any('there is no track "nobody"' in line for line in screen.lines)

    screen = watch(TERM="dumb")
    assert screen.wait_end(office.build.patience) == 1
    assert any('of type "dumb" shows lines only' in line for line in screen.lines)
    assert given_back(screen)
    screen = watch(TERM="nonsense")
    assert screen.wait_end(office.build.patience) == 1
    assert any('of type "nonsense" is not known here; set TERM' in line for line in screen.lines)


def test_an_option_is_no_name(office):
    """A name that begins with a dash stands behind --."""
    for word in ("--nonsense", "-h", "--versions"):
        result = office.run("trackctl-watch", word)
        assert (result.returncode, result.stderr) == (
            2, f'trackctl: watch: there is no option "{word}"; `trackctl-watch --help` tells more\n')
