"""Trace flags are switched while the service runs."""

from waiting import wait_until


def traced(service, text):
    wait_until(lambda: text in service.daemon.output(), service.build.patience, f"trace {text!r}")


def test_detail_traces_are_switched_on_and_off(service):
    service.net.link("lan0")
    service.ctl("set", "before", "interface", "lan0")
    assert "track = before" not in service.daemon.output()

    service.ctl("debug", "detail", "on")
    service.ctl("set", "during", "interface", "lan0")
    traced(service, "(object_tracking_type_interface_apply) :track = during, interface = lan0")

    service.ctl("debug", "detail", "off")
    service.ctl("debug", "notification", "on")
    service.ctl("set", "after", "interface", "lan0")
    # This trace comes later than the apply's would have come.
    traced(service, "queued (after)")
    assert "track = after" not in service.daemon.output()


def test_flags_are_listed(service):
    service.ctl("debug", "error", "on")
    listed = service.ctl("debug").split()
    assert listed[listed.index("error") + 1] == "on"
    assert listed[listed.index("detail") + 1] == "off"
    assert listed[listed.index("notification") + 1] == "off"
