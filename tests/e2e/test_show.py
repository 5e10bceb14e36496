"""`show track`: whole outputs, with nothing masked but the time of the last change."""

import re

import pytest

HEADER = (
    "Track                            Object                                    Parameter"
    "        Value                \n"
    "-----------------------------------------------------------"
    "---------------------------------------------\n")
TIME = re.compile(r"last change \d\d:\d\d:\d\d \S+ \w{3} \w{3} \d\d \d{4}\n")


def masked(text):
    return TIME.sub("last change TIME\n", text)


def test_brief(office):
    assert office.show("office") == HEADER + (
        "office                           interface lan0                            "
        "line protocol    Up   \n")


def test_brief_of_a_track_that_is_down(office):
    office.net.ip("link set lan0 down")
    office.wait_state("office", "down")
    assert office.show("office") == HEADER + (
        "office                           interface lan0                            "
        "line protocol    Down \n")


def test_brief_cuts_long_names_to_their_column(service):
    name = "n" * 32
    service.configure([name], "interface-name")  # trackctl makes none of more than 31 characters
    assert service.show(name) == HEADER + (
        "nnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnn interface interface-name                  "
        "line protocol    Down \n")


def test_detail(office):
    assert masked(office.show("office", "all")) == (
        "\nTrack office \n"
        "\tInterface lan0 line-protocol\n"
        "\tLine protocol is UP \n"
        "\t1 change, last change TIME\n")


def test_detail_after_changes(office):
    office.net.ip("link set lan0 down")
    office.wait_state("office", "down")
    assert masked(office.show("office", "all")) == (
        "\nTrack office \n"
        "\tInterface lan0 line-protocol\n"
        "\tLine protocol is DOWN \n"
        "\t2 changes, last change TIME\n")


def test_detail_with_a_pending_change(office):
    office.ctl("delay", "office", "--down", "100")
    office.net.ip("link set lan0 down")
    office.wait_detail("office", "delayed")
    assert re.sub(r"\(\d+ secs", "(N secs", masked(office.show("office", "all"))) == (
        "\nTrack office \n"
        "\tInterface lan0 line-protocol\n"
        "\tLine protocol is UP , delayed Down (N secs remaining)\n"
        "\t1 change, last change TIME\n")


def test_a_track_with_delays_only(service):
    track = "/cfg/gl/object_tracking/track/bare"
    assert service.commit([[f"set u32 {track}/delay_up 5"]]) == ["0x00000000"]
    assert service.show("bare") == HEADER + (
        "bare                             No Track Type Configured                  "
        "---              Down \n")
    assert masked(service.show("bare", "all")) == "\nTrack bare \n"


@pytest.mark.parametrize("arguments", [["nosuch"], ["all-tracks"]])
def test_brief_of_nothing_prints_nothing_at_all(service, arguments):
    assert service.show(*arguments) == ""


@pytest.mark.parametrize("name", ["nosuch", "all-tracks", "type-interface"])
def test_detail_of_nothing_prints_nothing(service, name):
    assert service.show(name, "all") == ""


def test_all_tracks(office):
    office.net.link("lan1", up=False)
    office.ctl("set", "guest", "interface", "lan1")
    brief = office.show("all-tracks")
    assert brief.startswith(HEADER)
    assert sorted(brief[len(HEADER):].splitlines()) == [
        "guest                            interface lan1                            "
        "line protocol    Down ",
        "office                           interface lan0                            "
        "line protocol    Up   "]
    blocks = masked(office.show("all-tracks", "all")).split("\nTrack ")
    assert blocks[0] == ""
    assert sorted(blocks[1:]) == [
        "guest \n\tInterface lan1 line-protocol\n\tLine protocol is DOWN \n"
        "\t1 change, last change TIME\n",
        "office \n\tInterface lan0 line-protocol\n\tLine protocol is UP \n"
        "\t1 change, last change TIME\n"]
    # A kind of track as the key.
    assert office.show("type-interface") == brief


def test_250_tracks_come_whole(service):
    names = [f"t{number:03}" for number in range(250)]
    service.net.link("lan0")
    service.configure(names, "lan0")
    detail = service.show("all-tracks", "all")
    assert sorted(re.findall(r"^Track (\S+) $", detail, re.M)) == names


def test_the_tool_prints_the_same(office):
    assert office.ctl("show", "office") == office.show("office")
    assert office.ctl("show") == office.show("all-tracks")
    assert office.ctl("show", "office", "--detail") == office.show("office", "all")
    assert office.ctl("show", "--detail") == office.show("all-tracks", "all")


def test_tracked_by_names_the_interfaces_that_use_a_track(office):
    item = "/cfg/if/act/{}/service-dhcp/track_name"
    assert office.commit([[f"set text {item.format('lan1')} office"],
                          [f"set text {item.format('lan2')} other"]]) == ["0x00000000"] * 2
    assert masked(office.show("office", "all")) == (
        "\nTrack office \n"
        "\tInterface lan0 line-protocol\n"
        "\tLine protocol is UP \n"
        "\t1 change, last change TIME\n"
        "\tTracked by:\n"
        "\t\tlan1\n")

    assert office.commit([[f"delete {item.format('lan1')}"]]) == ["0x00000000"]
    assert "Tracked by" not in office.show("office", "all")


@pytest.mark.parametrize("arguments", [[], ["show"], ["show", "nothing"]])
def test_other_arguments_of_the_front_end(service, arguments):
    """Only "show track" is served; `show` of anything else quietly does nothing."""
    if arguments:
        result = service.run("object_tracking", *arguments)
        assert (result.returncode, result.stdout, result.stderr) == (0, "", "")
