// What is found of an object, in words. Pure; each gives the reason for the state first.
#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "platform/fib_client.h"
#include "platform/linux/links/record.h"

namespace ot::trackctl::explain {

using findings = std::vector<std::string>;

// Null: there is no such interface.
findings interface_findings(const std::string& name, const link_record* link);

struct route_look {
  std::uint32_t address = 0;  // network byte order
  std::uint32_t length = 0;
  std::string vrf;
  bool vrf_exists = true;
  rtclient_result match;  // the longest match of the address
};
findings route_findings(const route_look& look);

struct operation_look {
  std::uint32_t operation = 0;
  bool service_runs = true;
  std::optional<std::uint32_t> code;  // none: there is no such operation
  std::string code_text;
  std::string what;  // "icmp 192.0.2.1"
};
findings operation_findings(const operation_look& look);

// The session as `trackctl show --json` has it, and what the engine says of itself, if anything.
findings session_findings(const std::string& track, const nlohmann::ordered_json& session,
                          const std::string& engine);

}  // namespace ot::trackctl::explain
