// How the running service stands to the services of the router that its tracks need: reading it,
// and the two renderings of `trackctl engine`, a table for people and JSON for programs.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tools/trackctl/kinds/kinds.h"

namespace ot::trackctl {

struct engine_state {
  std::string service;  // "bfd", "probe", "fib", "interfaces"
  bool connected = false;
  std::int64_t since = 0;  // wall-clock seconds
  std::uint32_t pending = 0;
};

// One line a service, in the given order; times are local.
std::string engine_table(const std::vector<engine_state>& states);

// An array of objects; times are in UTC.
nlohmann::ordered_json engine_json(const std::vector<engine_state>& states);

// Throws.
std::vector<engine_state> read_engine_states();

// Throws when a delay of a track of this kind would be applied before the track is made, since what
// the track needs is not connected: it would count as a track that follows nothing from then on.
// `made_anew`: the track is about to be created.
void require_service_before_delays(const track_kind& kind, const std::string& track,
                                   bool made_anew);

}  // namespace ot::trackctl
