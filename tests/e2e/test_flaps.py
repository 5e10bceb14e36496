"""After any storm of link changes the tracks agree with the kernel."""


from seeds import seeded_chance
from waiting import wait_until

LINKS = ["w0", "w1", "w2", "w3"]


def test_tracks_agree_with_the_kernel_after_50_random_changes(service):
    chance = seeded_chance()
    for link in LINKS:
        service.net.link(link)
        service.configure([f"on-{link}"], link)
    for _ in range(50):
        end = chance.choice(LINKS) + chance.choice(["", "-p"])
        service.net.ip(f"link set {end} {chance.choice(['up', 'down'])}")

    def agree():
        links = service.net.links()
        return all((service.state(f"on-{link}") == "up") == links[link] for link in LINKS)

    wait_until(agree, service.build.patience, "tracks agree with the links")


def test_a_burst_of_events_loses_nothing(service):
    """Hundreds of changes in one go, more than are read one by one."""
    service.net.ip_batch(
        [f"link add d{number} type veth peer name d{number}-p" for number in range(200)]
        + [f"link set d{number}-p up" for number in range(200)])
    watched = range(0, 200, 20)
    for number in watched:
        service.configure([f"on-d{number}"], f"d{number}")
    service.net.ip_batch(
        [f"link set d{number} {state}" for state in ("up", "down", "up") for number in range(200)])
    for number in watched:
        service.wait_state(f"on-d{number}", "up")
