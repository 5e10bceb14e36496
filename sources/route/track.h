// Tracks of type route.
//
// A track is up while the table of its VRF has a route of exactly its prefix and mask; a covering
// route is not the route. Address and VRF are two items, in either order, and a track without an
// address follows nothing yet. What is followed is an entry of the route table, by prefix, mask and
// VRF name.
//
// Two services of the router are asked. The VRF service turns names into ids and reports VRFs that
// come, change and go; a track may name one that does not exist. The FIB looks a route up in the
// table of such an id, and reports registered prefixes that may have changed; what the change is, a
// new look-up shows.
//
//   track          tying and untying, and the changes from both services
//   create         from configuration to a tied track: look-up, registration, record, entry
//   config         the two items, and the queue of those that wait for the FIB
//   table          the routes that tracks follow
//   fib, vrf       the connections: requests, notifications, reconnection
//
// A route's registration with the FIB goes with its last track; each track has a registration of
// its own with the VRF service, save for the default VRF. While the FIB is away states stay as they
// are and new items wait; on its return all routes are registered again, then what waits is applied
// in its order. Nothing here adds or changes a route.
//
// Addresses are in network byte order. Main thread.
#pragma once

#include <cstdint>

#include "platform/ledger_config.h"
#include "sources/objects.h"

namespace ot {

// --- Tying and untying ---------------------------------------------------------------------------

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

// --- Changes from outside ------------------------------------------------------------------------

// Stores the reachability and pushes it to the tracks of the route: up, or anything else down. Only
// changes are published.
void object_tracking_change_route_state(std::uint32_t prefix, std::uint32_t mask,
                                        const char* vrf_name, track_state state);

// The VRF was created or has another id: every route tracked in it is looked up and registered with
// the new id. Publishes also unchanged states.
void ot_update_track_vrf_id(const char* vrf_name, std::uint32_t vrf_id);

// The VRF is gone: the routes tracked in it are down. Their registrations stay.
void ot_delete_track_vrf_id(const char* vrf_name, std::uint32_t vrf_id);

// --- Configuration -------------------------------------------------------------------------------

// Verifier of the address item: the mask must be contiguous, and a set needs the route type item.
int object_tracking_verify_ip_mask_and_type(const ledger_change& change, ledger_verdict& verdict);

// Apply function of type/route/#/info/ip_address, a tuple of address and mask. While the FIB
// connection is down the creation of either item is queued.
int object_tracking_type_route_ip_apply(const ledger_change& change);

// Apply function of type/route/#/info/vrf, a VRF name. Names that agree in their first eight
// characters count as the same. Deleting the item means the default VRF.
int object_tracking_type_route_vrf_apply(const ledger_change& change);

// Queues an address item (`vrf_name` null, has_address true) or a VRF item. 0 or 12.
int queue_pending_route(const char* track, const char* vrf_name, std::uint32_t prefix,
                        std::uint32_t mask, bool has_address) noexcept;

// Applies and frees everything queued, in order. A failing item is traced and the rest goes on.
void replay_pending_routes();

// Frees everything queued: the end of a service in a test.
void drop_pending_routes() noexcept;

// How many items wait.
std::uint32_t pending_route_count() noexcept;

// --- Traces --------------------------------------------------------------------------------------

// `status` as it came; the failure of a call for a route is traced with the route's texts.
int traced_route_call(const char* who, const char* call, std::uint32_t prefix, std::uint32_t mask,
                      const char* vrf_name, int status) noexcept;
// The same for the look-up of a prefix.
int traced_route_lookup(const char* who, std::uint32_t prefix, const char* vrf_name,
                        int status) noexcept;

}  // namespace ot
