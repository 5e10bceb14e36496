import object_tracking

with object_tracking.open() as tracks:
    for event in tracks.follow("uplink"):
        print(event.kind, event.track, event.state, flush=True)
        if event.state is object_tracking.State.DOWN:
            break
