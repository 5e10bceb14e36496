"""The real-time priority of the service's own BFD engine, for those that it speaks with: one that has
to wait for a processor falls silent, and its sessions fall, which says nothing of the service."""

PRIORITY = 10
REALTIME = ("chrt", "--rr", str(PRIORITY))  # before the words of a command
