// Entries of the route table and the tracks tied to them, and the changes that reach the tracks
// from the FIB and from the VRF service.

#include "sources/route/track.h"

#include "core/in_addr_text.h"
#include "sources/route/fib.h"
#include "sources/route/table.h"
#include "sources/route/vrf.h"
#include "state/publication.h"

namespace ot {
namespace {

constexpr const char* untie_name = "delete_track_from_route_entry";

constexpr follower_row<route_entry> followers = {hash_db_add_new_route_item, drop_all_routes};

// The last track of a route has gone: drops its registrations and the entry.
int drop_route(route_object& route) noexcept {
  const std::uint32_t vrf_id = ot_vmap_vrf_name_2_vrf_id(route.vrf.c_str());
  int status =
      traced_route_call(untie_name, "ot_fec_unregister", route.prefix, route.mask,
                        route.vrf.c_str(), ot_fec_unregister(route.prefix, route.mask, vrf_id));
  if (status != status_ok) {
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

// Stores and publishes the state for every track of the entry, changed or not. The first failure.
int publish_to_all(route_entry& entry, track_state state, const char* who) {
  entry.reach_state = static_cast<std::uint32_t>(state);
  for (const track_name_node* node = entry.tracks; node != nullptr; node = node->next) {
    if (ot_track* track = hash_db_get_track_item(node->name.c_str())) {
      track->source_state = state;
    }
    const int status = object_tracking_set_track_state_in_ledger(node->name.c_str(), state);
    if (status != status_ok) {
      OT_TRACE_ERROR("(%s) : object_tracking_set_track_state_in_ledger fail for track %s  - %s",
                     who, node->name.c_str(), err_string(status));
      return status;
    }
  }
  return status_ok;
}

// Looks the entry's route up in its new VRF. A failure ends the walk over the routes.
int follow_new_id(route_entry& entry, const char* who) {
  fib_result result;
  int status = traced_route_lookup(who, entry.prefix, entry.vrf.c_str(),
                                   ot_fec_lookup(entry.prefix, entry.vrf_id, result.out()));
  if (status != status_ok) {
    return status;
  }
  if (result.get() != nullptr && result.get()->route_found) {
    status = publish_to_all(entry, reachability_of(result.get(), entry.mask), who);
    if (status != status_ok) {
      return status;
    }
  }
  traced_route_call(who, "ot_fec_register fail", entry.prefix, entry.mask, entry.vrf.c_str(),
                    ot_fec_register(entry.prefix, entry.mask, entry.vrf_id));
  return status_ok;
}

}  // namespace

int insert_track_to_route_entry(track_name_node* node, std::uint32_t prefix, std::uint32_t mask,
                                const char* vrf_name, track_state state,
                                std::uint32_t vrf_id) noexcept {
  OT_TRACE_ENTRY();
  route_entry entry;
  entry.prefix = prefix;
  entry.mask = mask;
  entry.vrf.assign(vrf_name);
  entry.vrf_id = vrf_id;
  entry.reach_state = static_cast<std::uint32_t>(state);
  return insert_follower(followers, __func__, node, hash_db_get_route_item(prefix, mask, vrf_name),
                         entry);
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
  return end_track_type(name, __func__, untie_name, delete_track_from_route_entry,
                        [](ot_track& track) {
                          track.object.route.ip_configured = 0;
                          return withdraw_up_state(track);
                        });
}

void object_tracking_change_route_state(std::uint32_t prefix, std::uint32_t mask,
                                        const char* vrf_name, track_state state) {
  OT_TRACE_DETAIL("(%s) : ip %s/%s vrf %s state %s", __func__, in_addr_s(prefix), in_addr_s(mask),
                  vrf_name, track_state_text(state));
  route_entry* entry = hash_db_get_route_item(prefix, mask, vrf_name);
  if (entry == nullptr) {
    OT_TRACE_ERROR("(%s) : route %s/%s vrf %s not found", __func__, in_addr_s(prefix),
                   in_addr_s(mask), vrf_name);
    return;
  }
  entry->reach_state = static_cast<std::uint32_t>(state);
  set_following_tracks(entry->tracks,
                       state == track_state::up ? track_state::up : track_state::down, __func__);
}

void ot_update_track_vrf_id(const char* vrf_name, std::uint32_t vrf_id) {
  OT_TRACE_DETAIL("(%s): vrf name %s, vrf id %x", __func__, vrf_name, vrf_id);
  for (auto* entry = hash_db_first_data<route_entry>(ipv4_route_table); entry != nullptr;
       entry = hash_db_next_data<route_entry>(ipv4_route_table)) {
    if (entry->vrf_id == vrf_id || !(entry->vrf == vrf_name)) {
      continue;
    }
    entry->vrf_id = vrf_id;
    if (vrf_id != 0 && follow_new_id(*entry, __func__) != status_ok) {
      return;
    }
  }
}

void ot_delete_track_vrf_id(const char* vrf_name, std::uint32_t vrf_id) {
  OT_TRACE_DETAIL("(%s): vrf name %s, vrf id %x", __func__, vrf_name, vrf_id);
  for (auto* entry = hash_db_first_data<route_entry>(ipv4_route_table); entry != nullptr;
       entry = hash_db_next_data<route_entry>(ipv4_route_table)) {
    if (entry->vrf_id != vrf_id || !(entry->vrf == vrf_name)) {
      continue;
    }
    entry->vrf_id = 0;
    if (publish_to_all(*entry, track_state::down, __func__) != status_ok) {
      return;
    }
  }
}

int traced_route_call(const char* who, const char* call, std::uint32_t prefix, std::uint32_t mask,
                      const char* vrf_name, int status) noexcept {
  if (status != status_ok) {
    OT_TRACE_ERROR("(%s) : %s for ip %s/%s vrf %s failed - %s", who, call, in_addr_s(prefix),
                   in_addr_s(mask), vrf_name, err_string(status));
  }
  return status;
}

int traced_route_lookup(const char* who, std::uint32_t prefix, const char* vrf_name,
                        int status) noexcept {
  if (status != status_ok) {
    OT_TRACE_ERROR("(%s) : ot_fec_lookup for ip %s vrf %s failed - %s", who, in_addr_s(prefix),
                   vrf_name, err_string(status));
  }
  return status;
}

}  // namespace ot
