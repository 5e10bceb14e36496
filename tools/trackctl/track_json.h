// A track as JSON: the stable form for programs. The same members always, null or empty where a
// track has nothing to say:
//
//   name        text
//   type        "interface", "route", "and", "or", "probe", "none", "weight", "percentage", "bfd"
//   state       "up", "down", "unknown" (nothing published yet, or a probe without a result)
//   changes     how often a state was published since the service started
//   last_change seconds since the epoch of the last publication, null before the first
//   delay_up    seconds (what is configured)
//   delay_down  seconds
//   pending     null, or {"state": the state that waits, "seconds": until it is published}
//   object      what is followed, by type; null for lists and tracks without a type
//                 interface: interface
//                 route: prefix, mask (dotted), vrf, next_hop (null when there is none)
//                 probe: operation, return_code, rtt_ms
//                 bfd: interface, destination, rate, debounce
//   members     of a list: [{"name", "state": "up" or "down", then "not" or "weight", "missing":
//               true when no track of that name is configured}]
//   limits      null, or {"up", "down"} of a threshold list
//   tracked_by  names of the interfaces whose configuration names the track
#pragma once

#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "oper/records/track_records.h"

namespace ot::trackctl {

// What the record itself does not carry.
struct track_extras {
  bool published = false;   // a state item exists
  bool configured = false;  // a configuration item exists
  std::uint32_t delay_up = 0;
  std::uint32_t delay_down = 0;
};

// Whether it is a probe track that is not up because its operation has no result: what is published
// for it says only that it is not up.
bool awaits_probe_result(const track_info__& record) noexcept;

// Everything but "missing".
nlohmann::ordered_json track_to_json(const track_info__& record, const track_extras& extras);

// Adds "missing" to the members of a track.
void flag_missing_members(nlohmann::ordered_json& track,
                          const std::function<bool(std::string_view name)>& is_configured);

}  // namespace ot::trackctl
