// Why a track is what it is.
//
//   gather.h    reads what the service has of a track and of all that it stands on -> site
//   objects.h   asks the kernel, the probe service's table and the BFD engine's report about what a
//               track follows
//   rules.h     what a list makes of its members
//   remedy.h    the fewest changes that would bring a list up: needs.h says what may do, trial.h
//               tries it out, and all that is smaller
//   tree.h      all of it as one JSON tree, which text.h puts into words: both say the same
//
// Only gathering asks anybody; the rest is pure.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "core/track_type.h"
#include "tools/what_if/question.h"

namespace ot::trackctl::explain {

struct member {
  std::string name;
  std::uint32_t value = 0;  // boolean lists: 1 for "not"; weight lists: the weight
};

struct track_facts {
  track_type type = track_type::none;
  track_state state = track_state::unknown;   // as published
  track_state source = track_state::unknown;  // what its object or its members last said
  std::optional<what_if::running_delay> delay;
  std::int64_t since = 0;  // wall-clock seconds of the last publication; 0 before the first
  std::uint32_t delay_up = 0;
  std::uint32_t delay_down = 0;
  std::string object;                 // in the words of `set`; empty for lists
  std::vector<std::string> findings;  // how the object looks now, the reason first
  std::vector<member> members;        // in their order
  std::uint32_t limit_up = 0;
  std::uint32_t limit_down = 0;
};

// The tracks that there are, as far as the explained one stands on them. A member without an entry
// is missing.
using site = std::map<std::string, track_facts, std::less<>>;

// The entry, or null.
inline const track_facts* find(const site& tracks, std::string_view name) {
  const auto found = tracks.find(name);
  return found == tracks.end() ? nullptr : &found->second;
}

}  // namespace ot::trackctl::explain
