"""The chance of tests that go by it. OT_SEED repeats a run: the number that a failed one shows."""

import os
import random


def seeded_chance():
    """Chance by OT_SEED, else by a seed of its own."""
    seed = int(os.environ.get("OT_SEED", random.randrange(1 << 32)))
    print(f"OT_SEED={seed}")
    return random.Random(seed)
