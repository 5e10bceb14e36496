// The explanation as JSON. A node for the track and, below a list, one for each member:
//
//   name, type, state, since    since: RFC 3339 with milliseconds, null before the first
//   publication delay       null, or {"to", "ends", "remaining_ms"} of the one that runs delay_up,
//   delay_down object      null for lists, or {"what", "findings": [text]}: how it looks now list
//   null, or {"members", "up": how many count as up, "value", "limits": {"up", "down"},
//               "result": what the members make of it now}; value and limits of threshold lists
//   members     [{"name", "not" or "weight", "counts_as": "up" or "down", "missing", "track"}];
//               track: the member's node; null where it is missing, or stands elsewhere: "state" is
//               its state then, and "seen" is "above", or "cycle" for a list that this one is a
//               member of, or "deeper" where the tree ends
//   remedy      of the first node alone: null, or [{"track", "to"}]: what would bring a list up
#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>

#include "tools/trackctl/explain/facts.h"

namespace ot::trackctl::explain {

// `name` is one of the tracks; `now_ms`: the wall clock, milliseconds.
nlohmann::ordered_json make_tree(const site& tracks, const std::string& name, std::int64_t now_ms);

}  // namespace ot::trackctl::explain
