// What changes a route's tracks from outside: reachability, and VRFs that come, change and go.
// Addresses are in network byte order. Main thread.
#pragma once

#include <cstdint>

#include "core/track.h"

namespace ot {

// Stores the reachability and pushes it to the tracks of the route: up, or anything else down. Only
// changes are published.
void object_tracking_change_route_state(std::uint32_t prefix, std::uint32_t mask,
                                        const char* vrf_name, track_state state);

// The VRF was created or has another id: every route tracked in it is looked up and registered with
// the new id. Publishes also unchanged states.
void ot_update_track_vrf_id(const char* vrf_name, std::uint32_t vrf_id);

// The VRF is gone: the routes tracked in it are down. Their registrations stay.
void ot_delete_track_vrf_id(const char* vrf_name, std::uint32_t vrf_id);

}  // namespace ot
