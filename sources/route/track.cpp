// Entries of the route table and the tracks tied to them.

#include "sources/route/track.h"

#include "core/debug.h"
#include "core/in_addr_text.h"
#include "platform/status.h"
#include "sources/route/fib_connection.h"
#include "sources/route/table.h"
#include "sources/route/vrf_connection.h"
#include "state/publication.h"

namespace ot {
namespace {

constexpr const char* untie_name = "delete_track_from_route_entry";

// The last track of a route has gone: drops its registrations and the entry.
int drop_route(route_object& route) noexcept {
  int status =
      ot_fec_unregister(route.prefix, route.mask, ot_vmap_vrf_name_2_vrf_id(route.vrf.c_str()));
  if (status != status_ok) {
    OT_TRACE_ERROR("(%s) : ot_fec_unregister for ip %s/%s vrf %s failed - %s", untie_name,
                   in_addr_s(route.prefix), in_addr_s(route.mask), route.vrf.c_str(),
                   err_string(status));
    return status;
  }
  ot_vmap_vrf_remove(route.vrf.c_str(), &route.vrf_notification);
  status = hash_db_delete_route_item(route.prefix, route.mask, route.vrf.c_str());
  if (status != status_ok) {
    OT_TRACE_ERROR("(%s) : failed to delete route %s/%s vrf %s from hash", untie_name,
                   in_addr_s(route.prefix), in_addr_s(route.mask), route.vrf.c_str());
    return no_memory;
  }
  return status_ok;
}

}  // namespace

int insert_track_to_route_entry(track_name_node* node, std::uint32_t prefix, std::uint32_t mask,
                                const char* vrf_name, track_state state,
                                std::uint32_t vrf_id) noexcept {
  OT_TRACE_ENTRY();
  if (route_entry* entry = hash_db_get_route_item(prefix, mask, vrf_name)) {
    push_track_name(entry->tracks, node);
    return status_ok;
  }
  route_entry entry;
  entry.prefix = prefix;
  entry.mask = mask;
  entry.vrf.assign(vrf_name);
  entry.vrf_id = vrf_id;
  entry.reach_state = static_cast<std::uint32_t>(state);
  node->next = nullptr;
  entry.tracks = node;
  const int status = hash_db_add_new_route_item(entry);
  if (status != status_ok) {
    OT_TRACE_ERROR("(%s) : hash_db_add_new_item failed - no memory to add item - %s", __func__,
                   err_string(status));
    drop_all_routes();
  }
  return status;
}

int delete_track_from_route_entry(const char* name) {
  OT_TRACE_ENTRY();
  ot_track* track = hash_db_get_track_item(name);
  if (track == nullptr) {
    return status_ok;
  }
  const int status = withdraw_up_state(*track);
  if (status != status_ok) {
    return status;
  }
  route_object& route = track->object.route;
  if (route.ip_configured == 0) {
    ot_vmap_vrf_remove(route.vrf.c_str(), &route.vrf_notification);
    route.vrf.assign(default_vrf);
    return status_ok;
  }
  route_entry* entry = hash_db_get_route_item(route.prefix, route.mask, route.vrf.c_str());
  if (entry == nullptr || !remove_track_name(entry->tracks, name)) {
    return status_ok;
  }
  if (entry->tracks != nullptr) {
    // The others have notification handles of their own.
    return ot_vmap_vrf_remove(route.vrf.c_str(), &route.vrf_notification);
  }
  return drop_route(route);
}

int object_tracking_type_route_delete(const char* name) {
  OT_TRACE_ENTRY();
  int status = delete_track_from_route_entry(name);
  if (status != status_ok) {
    OT_TRACE_ERROR("(%s) : delete_track_from_route_entry failed - %s", __func__,
                   err_string(status));
    return status;
  }
  ot_track* track = hash_db_get_track_item(name);
  if (track == nullptr) {
    return status_ok;
  }
  track->object.route.ip_configured = 0;
  status = withdraw_up_state(*track);
  track->type = track_type::none;
  return status;
}

}  // namespace ot
