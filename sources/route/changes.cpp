// Changes from the FIB and from the VRF service, turned into track states.

#include "sources/route/changes.h"

#include "core/debug.h"
#include "core/in_addr_text.h"
#include "platform/status.h"
#include "sources/route/fib_connection.h"
#include "sources/route/table.h"
#include "state/publication.h"

namespace ot {
namespace {

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
  int status = ot_fec_lookup(entry.prefix, entry.vrf_id, result.out());
  if (status != status_ok) {
    OT_TRACE_ERROR("(%s) : ot_fec_lookup for ip %s vrf %s failed - %s", who,
                   in_addr_s(entry.prefix), entry.vrf.c_str(), err_string(status));
    return status;
  }
  if (result.get() != nullptr && result.get()->route_found) {
    status = publish_to_all(entry, reachability_of(result.get(), entry.mask), who);
    if (status != status_ok) {
      return status;
    }
  }
  status = ot_fec_register(entry.prefix, entry.mask, entry.vrf_id);
  if (status != status_ok) {
    OT_TRACE_ERROR("(%s) : ot_fec_register fail for ip %s/%s vrf %s failed - %s", who,
                   in_addr_s(entry.prefix), in_addr_s(entry.mask), entry.vrf.c_str(),
                   err_string(status));
  }
  return status_ok;
}

}  // namespace

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

}  // namespace ot
