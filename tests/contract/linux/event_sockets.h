// The netlink sockets by which this process is notified of events in this thread's namespace, and
// the messages that the kernel could not put into them. What earlier tests left open belongs to
// their namespaces: it is neither counted nor changed.
#pragma once

// Gives every one of them that listens to a group of `groups` (RTMGRP_* bits) the smallest receive
// buffer. How many there were.
int shrink_event_sockets(unsigned groups);

// How many messages the kernel has dropped on the sockets of this thread's namespace.
unsigned long dropped_messages();
