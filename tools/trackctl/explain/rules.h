// What a list makes of its members. Boolean lists judge members by what is published, threshold
// lists by what their sources say; a missing member is down, and counts in a percentage.
#pragma once

#include <cstdint>
#include <functional>

#include "tools/trackctl/explain/facts.h"

namespace ot::trackctl::explain {

inline bool is_boolean(track_type type) {
  return type == track_type::boolean_and || type == track_type::boolean_or;
}

// Whether the member counts as up for a list of that type, as things are.
bool counts_as_up(const site& tracks, track_type type, const member& each);

struct tally {
  std::uint64_t up = 0;     // members that count as up
  std::uint64_t count = 0;  // members
  std::uint64_t value = 0;  // of threshold lists: the sum, or the percentage
};

// `is_up` says which members count as up.
tally count_members(const track_facts& list, const std::function<bool(const member&)>& is_up);

// Whether a list with that tally is up.
bool is_up(const track_facts& list, const tally& counted);

}  // namespace ot::trackctl::explain
