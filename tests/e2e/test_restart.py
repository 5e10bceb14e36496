"""What survives the end of the service's process."""

import subprocess
import time

import pytest

import ledger


@pytest.fixture
def running(service):
    """Tracks of three kinds of state, each published once."""
    service.net.link("wan0")
    service.net.link("lan0", up=False)
    service.ctl("set", "uplink", "interface", "wan0", "--delay-up", "3", "--delay-down", "40")
    service.ctl("set", "office", "interface", "lan0")
    service.wait_state("uplink", "up")
    service.wait_state("office", "down")
    return service


def states(service):
    return {name: service.state(name) for name in ("uplink", "office")}


def test_after_a_crash_states_are_taken_over_without_an_event(running):
    running.crash()
    running.start()
    assert states(running) == {"uplink": "up", "office": "down"}
    for name in ("uplink", "office"):
        assert "\t0 changes, last change" in running.show(name, "all")
    assert "TRACK_INFO" not in running.daemon.output()


def test_after_a_crash_nothing_is_said_of_an_interface_that_is_still_not_there(running):
    running.ctl("set", "later", "interface", "later0")
    running.crash()
    running.start()
    assert running.state("later") == "down"
    assert "TRACK_INFO" not in running.daemon.output()


def test_a_track_that_was_made_without_an_existence_can_be_deleted(running):
    running.commit([["set u32 /cfg/gl/object_tracking/track/bare/delay_up 5"]])
    assert running.show("bare", "all") != ""
    running.ctl("delete", "bare")
    assert running.show("bare", "all") == ""


def test_after_a_crash_configuration_goes_on_working(running):
    running.crash()
    running.start()
    events = running.follow()
    running.net.ip("link set lan0 up")
    events.expect(("office", "up"))
    # The delays are back too.
    began = time.monotonic()
    running.net.carrier("wan0", on=False)
    running.wait_delayed("uplink", "Down", 40, began)
    events.expect_nothing()


def test_a_change_during_the_outage_is_published_at_the_restart(running):
    running.crash()
    running.net.ip("link set lan0 up")
    running.start()
    assert running.state("office") == "up"
    assert "\t1 change, last change" in running.show("office", "all")


def test_a_deleted_track_stays_deleted(running):
    running.ctl("delete", "office")
    running.crash()
    running.start()
    assert running.show("office", "all") == ""
    assert running.state("uplink") == "up"


def test_sigterm_ends_with_0_and_keeps_states(running):
    running.stop()
    running.start()
    assert states(running) == {"uplink": "up", "office": "down"}
    assert "\t0 changes, last change" in running.show("uplink", "all")


def test_many_crashes_in_a_row(running):
    for _ in range(10):
        running.crash()
        running.start()
    assert states(running) == {"uplink": "up", "office": "down"}
    assert "\t0 changes, last change" in running.show("uplink", "all")


def test_tools_say_that_the_service_is_not_running(running):
    running.crash()
    result = running.run("trackctl", "state", "uplink")
    assert result.returncode == 3
    assert result.stdout == ""
    assert result.stderr != ""


def answered_before_a_crash(service, commits):
    """How many of the commits in the file were answered by the service, which is killed meanwhile."""
    with open(commits) as stream, subprocess.Popen(
            service.build.command("ledger_put"), stdin=stream, stdout=subprocess.PIPE,
            stderr=subprocess.DEVNULL, text=True,
            env=service.build.environment(service.root)) as putting:
        answers = [putting.stdout.readline() for _ in range(100)]
        service.crash()
        answers += putting.stdout.readlines()
    return answers.count("0x00000000\n")


def test_an_answered_commit_survives_a_crash_at_any_moment(new_service, tmp_path):
    names = [f"t{number:03}" for number in range(400)]
    script = tmp_path / "commits"
    script.write_text(ledger.commit_text(ledger.track_items(name, "lan0") for name in names))
    for _ in range(10):
        service = new_service()
        service.start()
        answered = answered_before_a_crash(service, script)
        assert answered >= 100
        if answered < len(names):
            break
    else:
        pytest.fail("this machine is so busy that the crash always comes after the last commit")

    service.start()
    shown = service.show("all-tracks").splitlines()[2:]
    # The one whose answer was lost may be there too.
    assert sorted(line.split()[0] for line in shown) in (names[:answered], names[:answered + 1])
