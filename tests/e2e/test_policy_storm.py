"""Whatever is killed while tracks change: in the end each command has seen the final state, and the
files say it. OT_ROUNDS makes it longer, OT_SEED repeats it."""

import os
import random

from policy import Trackpolicy, lines, script
from waiting import wait_until

ROUNDS = int(os.environ.get("OT_ROUNDS", "6"))
TRACKS = ["a", "b"]


def change_something(rng, service, up):
    name = rng.choice(TRACKS)
    up[name] = not up[name]
    service.net.carrier(f"up-{name}", up[name])


def kill_something(rng, service, policy):
    victims = rng.choice(["policy", "service", "both", "nobody"])
    if victims in ("service", "both"):
        service.crash()
    if victims in ("policy", "both"):
        policy.kill()
    if victims in ("service", "both"):
        service.start()
    if victims in ("policy", "both"):
        policy.start()


def agrees(service, policy, told, up):
    """What is wrong, or nothing."""
    for name in TRACKS:
        state = "up" if up[name] else "down"
        seen = lines(told(name))[-1:]
        written = lines(policy.path(f"run/site/{name}"))
        if seen != [state] or written != [state]:
            return f"{name} is {state}, told {seen}, written {written}"
    return ""


def test_in_the_end_everybody_knows_the_final_state(service):
    seed = int(os.environ.get("OT_SEED", random.randrange(2**32)))
    print("OT_SEED =", seed)
    rng = random.Random(seed)
    policy = Trackpolicy(service)
    os.makedirs(policy.path("run/site"))

    def told(name):
        return policy.path(f"told-{name}")

    rows, up = [], {}
    for name in TRACKS:
        service.net.link(f"up-{name}")
        service.ctl("set", name, "interface", f"up-{name}")
        up[name] = True
        tell = script(policy, f"tell-{name}", f'sleep 0.02; echo "$OT_STATE" >> {told(name)}\n')
        rows.append({"name": f"c-{name}", "track": name, "kind": "command", "run": tell,
                     "run_as_root": True})
        rows.append({"name": f"f-{name}", "track": name, "kind": "file", "grace": "30s",
                     "path": f"/run/site/{name}", "text_up": "up", "text_down": "down"})
    policy.configure(*rows)
    policy.start()
    try:
        for _ in range(ROUNDS):
            for _ in range(rng.randrange(1, 6)):
                change_something(rng, service, up)
            kill_something(rng, service, policy)
            for _ in range(rng.randrange(3)):
                change_something(rng, service, up)
            wait_until(lambda: not agrees(service, policy, told, up), service.build.patience,
                       lambda: agrees(service, policy, told, up))
    finally:
        policy.close()
