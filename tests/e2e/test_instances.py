"""Several instances beside each other, and never two on one prefix."""

from daemon import Daemon


def test_two_instances_know_nothing_of_each_other(new_service):
    one, two = new_service(), new_service()
    for instance in (one, two):
        instance.start()
        instance.net.link("lan0")
        instance.ctl("set", "office", "interface", "lan0")
    events_one, events_two = one.follow(), two.follow()

    one.net.ip("link set lan0 down")
    events_one.expect(("office", "down"))
    events_two.expect_nothing()
    assert two.state("office") == "up"
    one.stop()
    assert two.state("office") == "up"


def test_a_second_instance_on_the_same_prefix_is_refused(service):
    service.net.link("lan0")
    service.ctl("set", "office", "interface", "lan0")
    second = Daemon(service.build, service.net, service.root,
                    service.log + "-second")
    assert second.wait_exit() not in (0, None)
    assert service.root in second.output()

    assert service.daemon.running
    assert service.state("office") == "up"
    # The first still reacts, and still takes commits.
    service.net.ip("link set lan0 down")
    service.wait_state("office", "down")
    service.ctl("delete", "office")
