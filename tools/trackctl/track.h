// A track as the running service reports it: reading its operational record and what stands about
// it elsewhere in the ledger, and putting it into JSON, the stable form for programs.
//
// The JSON has the same members always, null or empty where a track has nothing to say:
//
//   name        text
//   type        "interface", "route", "and", "or", "probe", "none", "weight", "percentage", "bfd"
//   state       "up", "down", "unknown" (nothing published yet, or a probe without a result)
//   changes     how often a state was published since the service started
//   last_change the time of the last publication (RFC 3339, in whole seconds), null before the
//   first delay_up    seconds (what is configured) delay_down  seconds pending     null, or
//   {"state": the state that waits, "seconds": until it is published} object      what is followed,
//   by type; null for lists and tracks without a type
//                 interface: interface
//                 route: prefix, mask (dotted), vrf, next_hop (null when there is none)
//                 probe: operation, return_code, rtt_ms
//                 bfd: interface, destination, rate, debounce, session: {"state", "diagnostic",
//                 "remote_state", "remote_diagnostic", "transmit_ms", "receive_ms",
//                 "detection_ms", "packets_in", "packets_out", "ups", "downs", "of_another",
//                 "followed_by", "problem"}
//   members     of a list: [{"name", "state": "up" or "down", then "not" or "weight", "missing":
//               true when no track of that name is configured}]
//   limits      null, or {"up", "down"} of a threshold list
//   tracked_by  names of the interfaces whose configuration names the track
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>

#include "oper/records/track_records.h"
#include "tools/json.h"

namespace ot::trackctl {

inline constexpr const char* records_root = "/oper/object_tracking/gl/";
inline constexpr const char* states_root = "/oper/gl/object-tracking/";  // an item a track

// What the record itself does not carry.
struct track_extras {
  bool published = false;   // a state item exists
  bool configured = false;  // a configuration item exists
  std::uint32_t delay_up = 0;
  std::uint32_t delay_down = 0;
};

// Whether the track is not up because what it follows has no result yet, as a probe's operation
// may: what is published for it says only that it is not up.
bool awaits_result(const track_info__& record) noexcept;

// "up", "down" or "unknown".
const char* state_word(const track_info__& record, bool published) noexcept;

// Everything but "missing".
nlohmann::ordered_json track_to_json(const track_info__& record, const track_extras& extras);

// Adds "missing" to the members of a track.
void flag_missing_members(nlohmann::ordered_json& track,
                          const std::function<bool(std::string_view name)>& is_configured);

// The record lives only during the call.
using track_visitor = std::function<void(const track_info__& record)>;

// One track; false when the service has none of that name. Throws.
bool read_track_record(const std::string& track, const track_visitor& visit);

// Every track, in the service's order, read in pages before the first is visited: when a track goes
// where a page would begin, all are read anew. Throws.
void read_track_records(const track_visitor& visit);

// The same with the whole name of each, of which a record has but 32 characters.
using named_track_visitor = std::function<void(std::string_view track, const track_info__& record)>;
void read_named_records(const named_track_visitor& visit);

// The tracks of which a state was published. Throws.
std::set<std::string, std::less<>> read_published_tracks();

// What the records do not carry, of every track by its name. Throws.
std::map<std::string, track_extras, std::less<>> read_track_extras();

}  // namespace ot::trackctl
