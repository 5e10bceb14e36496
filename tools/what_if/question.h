// What-if: what would become of the tracks, and when, if some of them went up or down or the
// configuration changed. The service's own code computes it, on the in-memory router and in virtual
// time, in a program of its own (main.cpp): a program stands on one platform, and trackctl on the
// real one. So nothing of the running service can change.
//
//   trackctl: reads what is there -> question -> wire.h -> standard input
//   simulation.h: a router in memory with these objects, the service on it with this configuration
//       and these states; then what the question assumes happens, and time passes until every delay
//       is over
//   answer -> wire.h -> standard output -> trackctl prints it
//
// What the service has been told of an object is all that is known of it, so the objects in memory
// are just good enough for the states that the tracks have: an interface for a track that follows
// one, a route in its table, an operation's result, a peer that answers. Objects do not act on each
// other: no route goes with its interface.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/track_type.h"
#include "platform/ledger_commit.h"

namespace ot::what_if {

// An item of the configuration; the path is absolute.
struct stored_item {
  std::string path;
  ledger_kind kind = ledger_kind::u32;
  std::vector<std::byte> bytes;
};

struct running_delay {
  track_state to = track_state::unknown;
  std::uint64_t remaining_ms = 0;
};

// A track as it stands in the running service.
struct present_track {
  std::string name;
  track_state state = track_state::unknown;   // as published
  track_state source = track_state::unknown;  // what its object or its members last said
  std::optional<running_delay> delay;
};

// The object of this track, which is no list, comes to this state and stays there.
struct assumption {
  std::string track;
  track_state state = track_state::up;
};

struct question {
  std::vector<stored_item> items;  // the members of a list from the oldest to the newest
  std::vector<present_track> tracks;
  std::vector<ledger_proposal> changes;  // of the configuration, as one commit
  std::vector<assumption> assumptions;
};

// One published state, or a track's beginning or end: "up", "down", "unknown", "new", "gone".
struct change {
  std::uint64_t after_ms = 0;
  std::string track;
  std::string from;
  std::string to;
  bool anyway = false;  // it happens without what the question assumes as well
};

struct answer {
  std::vector<change> changes;     // in the order of time, then of names
  std::vector<std::string> unmet;  // tracks whose object cannot come to the assumed state
  std::string refusal;             // why the changes of the configuration are refused, or empty
};

}  // namespace ot::what_if
