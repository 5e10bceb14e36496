// How the running service stands to the services of the router that its tracks need, how long its
// loop was kept busy, and how much of its log was dropped: reading it, and the two renderings of
// `trackctl engine`, text for people and JSON for programs.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/json.h"
#include "tools/trackctl/kinds/kinds.h"

namespace ot::trackctl {

struct engine_state {
  std::string service;  // "bfd", "probe", "fib", "interfaces"
  bool connected = false;
  std::int64_t since = 0;  // wall-clock seconds
  std::uint32_t pending = 0;
  std::string detail = {};      // what the service is and why, where there is something to tell
  std::uint64_t discarded = 0;  // packets
};

// The service's event loop, and its log.
struct loop_state {
  std::int64_t since = 0;         // wall-clock seconds, as longest_at: the service's start
  std::int64_t longest_at = 0;    // 0: there was no turn yet
  std::uint32_t longest_us = 0;   // the longest turn
  std::uint64_t log_dropped = 0;  // lines of the log
};

// One line a service, in the given order; times are local.
std::string engine_table(const std::vector<engine_state>& states);
// A line for each service with a detail, and one for each that has discarded packets.
std::string details_text(const std::vector<engine_state>& states);
// A line, and one more when lines of the log were dropped.
std::string loop_text(const loop_state& state);

// An array of objects; times are local with their offset. The loop is the last, a service like the
// others.
nlohmann::ordered_json engine_json(const std::vector<engine_state>& states, const loop_state& loop);

// Both throw.
std::vector<engine_state> read_engine_states();
loop_state read_loop_state();

}  // namespace ot::trackctl
