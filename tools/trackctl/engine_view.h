// What `trackctl engine` prints of the services that tracks stand on: a table for people, JSON for
// programs.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

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

}  // namespace ot::trackctl
