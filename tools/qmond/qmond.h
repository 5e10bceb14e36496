// qmond, the network-probe service.
//
// It runs the operations of its configuration file (ICMP echo, TCP connect, HTTP, DNS, an external
// command) and publishes what they come to in a table in shared memory, which the tracks' service
// and `qmond status` read. One process, one thread, one event loop; nothing in it waits.
//
//   config.h           the file -> operations, or every error with its place; it is read by
//                      config.cpp (its outline) and operation_keys.h, with tools/settings/
//   engine.h           when each operation is due, one probe of it at a time; knows no sockets
//   kinds/             one file a kind of operation, with its row: its keys in the file, its probe.
//                      kinds/host.h owns what all operations share: the sockets, the HTTP client,
//                      the resolver, the slots of commands
//   outcome.h          what results come to: the published return code, the history
//   table_writer.h     the table's writing end; platform/linux/probes/qmon/ lays it out, reads it
//   daemon.cpp         the process: lock, privileges, signals, reload, heartbeat
//   status.h, main.cpp the operator's side
//
// An operation that is due makes a probe (a name is resolved first), the probe calls back with a
// return code, the engine records and publishes it. The engine owns the probes, the host outlives
// them; ending a probe gives up whatever it waits for. A configuration with errors is never taken
// in part. What targets send is read no further than a result needs, and what is due goes before
// descriptors, so that no target holds another operation up. qmond knows no tracks, asks the
// tracks' service for nothing, and keeps no privilege once its sockets are open; commands get no
// shell and no descriptor of ours, and root runs none.
#pragma once

#include <string>

#include "tools/program.h"

namespace ot::qmond {

enum exit_status : int {
  exit_done = 0,
  exit_failed = 1,  // the reason is on standard error
  exit_usage = 2,
  exit_not_running = 3,
};

// With an exit_status.
using failure = tool_failure;

inline constexpr const char* config_path = "/etc/object_tracking/probes.toml";

struct daemon_options {
  bool commands_as_root = false;  // else root runs no command operations
};

// Runs in the foreground until SIGTERM or SIGINT; SIGHUP reads the configuration again. Throws
// failure or std::system_error when it cannot start. Returns the exit status.
int run_daemon(const daemon_options& options);

}  // namespace ot::qmond
