// What an operator may type for a name, a number or a prefix, checked before anything is sent: a
// refusal here can say what would be right.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace ot::trackctl {

// Throws unless `name` can name a new track: 1 to 31 characters of A-Z a-z 0-9 _ . : -, and no word
// that means something else where names stand. (The service takes 39 characters, its events carry
// 31.)
void check_new_track_name(std::string_view name);

// Throws unless there can be a track of that name, made by whatever client: 1 to 39 characters
// without a '/' or a control character.
void check_track_name(std::string_view name);

// Throws unless `name` can name an interface: 1 to 15 characters, none of them '/', ':' or white
// space.
void check_interface_name(std::string_view name);

// Throws unless `name` can name a VRF, which is a device like an interface. (The service takes 31
// characters.)
void check_vrf_name(std::string_view name);

// A whole decimal number within the range. `what` names the value in the refusal.
struct number_range {
  const char* unit = "";  // for example " of seconds"
  std::uint32_t least = 0;
  std::uint32_t most = 0xffffffff;
};
std::uint32_t parse_number(const std::string& what, const std::string& text,
                           const number_range& range);

// Seconds from 0 to 65535, as parse_seconds (times.h) reads them. `what` names the value in the
// refusal.
std::uint32_t parse_delay(const std::string& what, const std::string& text);

struct route_prefix {
  std::uint32_t address = 0;  // network byte order, as is the mask
  std::uint32_t mask = 0;
};

// Parses "ADDRESS/LEN" (IPv4). Throws for anything else, for host bits (the refusal gives the
// network that was meant) and for addresses that cannot be tracked.
route_prefix parse_route_prefix(const std::string& text);

// The dotted text of an address in network byte order.
std::string address_text(std::uint32_t address);

}  // namespace ot::trackctl
