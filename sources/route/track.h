// Tracks of type route: tying them to routes and letting them go. Addresses are in network byte
// order. Main thread.
#pragma once

#include <cstdint>

#include "core/track.h"
#include "sources/track_names.h"

namespace ot {

// Applies what is known of a route track: a VRF (`vrf_name` null: none given) or an address and
// mask (with `has_address`). Creates the track when need be; looks the route up, registers for it
// and publishes the state once an address is known. 0 or an error code.
int object_tracking_type_route_create(const char* name, const char* vrf_name, std::uint32_t prefix,
                                      std::uint32_t mask, bool has_address);

// Unties the track and takes its type and address away; an up track becomes unknown. 0 or an error.
int object_tracking_type_route_delete(const char* name);

// Puts `node` into the route's entry, or makes an entry with this state and VRF id. 0 or the
// table's error; the node stays the caller's then, and every route entry is dropped.
int insert_track_to_route_entry(track_name_node* node, std::uint32_t prefix, std::uint32_t mask,
                                const char* vrf_name, track_state state,
                                std::uint32_t vrf_id) noexcept;

// Unties the track from its route. The last track of a route takes the route's registration along.
// 0, also for a missing track, or an error: then the entry stays.
int delete_track_from_route_entry(const char* name);

}  // namespace ot
