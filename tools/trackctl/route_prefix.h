// An IPv4 prefix as an operator types it.
#pragma once

#include <cstdint>
#include <string>

namespace ot::trackctl {

struct route_prefix {
  std::uint32_t address = 0;  // network byte order, as is the mask
  std::uint32_t mask = 0;
};

// Parses "ADDRESS/LEN". Throws for anything else, for host bits (the refusal gives the network that
// was meant) and for addresses that cannot be tracked.
route_prefix parse_route_prefix(const std::string& text);

// Throws unless `name` can name a VRF: 1 to 31 characters, neither '/' nor white space.
void check_vrf_name(const std::string& name);

}  // namespace ot::trackctl
