// The tie between tracks and probe operations. An entry can hold several tracks, but configuration
// lets only one follow an operation.

#include "sources/probe/track.h"

#include "core/debug.h"
#include "platform/status.h"
#include "sources/probe/table.h"
#include "state/publication.h"
#include "state/timers.h"

namespace ot {
namespace {

// A probe track that is let go is down, not unknown, and without a delay.
int publish_down(ot_track& track) {
  if (track.source_state != track_state::up) {
    return status_ok;
  }
  track.source_state = track_state::down;
  stop_ot_timer(track.delay_timer);
  return object_tracking_set_track_state_in_ledger_after_timer_expired(track.name.c_str(),
                                                                       track_state::down);
}

}  // namespace

int insert_track_to_prb_entry(track_name_node* node, track_state state,
                              std::int32_t op_id) noexcept {
  OT_TRACE_ENTRY();
  prb_entry* present = hash_db_get_prb_item(op_id);
  OT_TRACE_DETAIL("lookup over ");
  if (present != nullptr) {
    OT_TRACE_DETAIL(" lookup != NULL");
    push_track_name(present->tracks, node);
    return status_ok;
  }
  OT_TRACE_DETAIL("lookup == NULL");
  OT_TRACE_DETAIL("calling hash_db_add_new_prb_item ");
  node->next = nullptr;
  const prb_entry entry{op_id, node, static_cast<std::uint32_t>(state), 0};
  const int status = hash_db_add_new_prb_item(entry);
  if (status != status_ok) {
    OT_TRACE_ERROR("(%s) : hash_db_add_new_item failed - no memory to add item - %s", __func__,
                   err_string(status));
    drop_all_probes();
  }
  return status;
}

int delete_track_from_prb_entry(const char* name) {
  OT_TRACE_ENTRY();
  ot_track* track = hash_db_get_track_item(name);
  if (track == nullptr) {
    OT_TRACE_DETAIL("(%s) :track %s not found - nothing to delete", __func__, name);
    return status_ok;
  }
  const int status = publish_down(*track);
  if (status != status_ok) {
    return status;
  }
  const auto op_id = static_cast<std::int32_t>(track->object.probe.operation_id);
  prb_entry* entry = hash_db_get_prb_item(op_id);
  if (entry == nullptr) {
    return status_ok;
  }
  OT_TRACE_DETAIL("(%s) : op_id %d found in hash find track %s and delete it", __func__, op_id,
                  name);
  remove_track_name(entry->tracks, name);
  if (entry->tracks != nullptr) {
    return status_ok;
  }
  OT_TRACE_DETAIL("(%s) :no more tracks for op_id : %d  - delete prb entry from hash ", __func__,
                  op_id);
  stop_ot_timer(track->poll_timer);
  return hash_db_delete_prb_item(op_id) == status_ok ? status_ok : no_memory;
}

int object_tracking_type_prb_delete(const char* name) {
  OT_TRACE_DETAIL("(%s) delete track %s:", __func__, name);
  int status = delete_track_from_prb_entry(name);
  if (status != status_ok) {
    OT_TRACE_ERROR("(%s) : delete_track_from_prb_entry failed - %s", __func__, err_string(status));
    return status;
  }
  ot_track* track = hash_db_get_track_item(name);
  if (track == nullptr) {
    return status_ok;
  }
  status = publish_down(*track);
  track->type = track_type::none;
  return status;
}

}  // namespace ot
