// Untying tracks from probe operations, and the poll. What cannot be read is no result: the track
// becomes unknown and is polled on.

#include "sources/probe/track.h"

#include "sources/probe/statistics.h"
#include "sources/probe/table.h"
#include "state/publication.h"
#include "state/timers.h"

namespace ot {
namespace {

constexpr const char* untie_name = "delete_track_from_prb_entry";

constexpr follower_row<prb_entry> followers = {
    .add = hash_db_add_new_prb_item,
    .drop_all = drop_all_probes,
    .found = " lookup != NULL",
    .absent = {"lookup == NULL", "calling hash_db_add_new_prb_item "},
};

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

// A track whose operation was taken away without stopping its poll is polled on, until it follows
// something else.
bool holds_probe(const ot_track& track) noexcept {
  return track.type == track_type::probe || track.type == track_type::none;
}

void take_over(ot_track& track, const qmon_stats& stats) noexcept {
  track.source_state = state_of_return_code(stats.latestReturnCode);
  track.object.probe.response_time = stats.latestResponseTime;
  track.object.probe.return_code = stats.latestReturnCode;
  OT_TRACE_DETAIL(" latestReturnCode = %d, latestResponseTime = %d",
                  static_cast<int>(stats.latestReturnCode),
                  static_cast<int>(stats.latestResponseTime));
}

}  // namespace

int insert_track_to_prb_entry(track_name_node* node, track_state state,
                              std::int32_t op_id) noexcept {
  OT_TRACE_ENTRY();
  prb_entry* present = hash_db_get_prb_item(op_id);
  OT_TRACE_DETAIL("lookup over ");
  const prb_entry fresh{op_id, nullptr, static_cast<std::uint32_t>(state), 0};
  return insert_follower(followers, __func__, node, present, fresh);
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
  return end_track_type(name, __func__, untie_name, delete_track_from_prb_entry, publish_down);
}

int ot_prb_read_shm_after_timer_expired(const char* name, std::uint32_t /*value*/) {
  OT_TRACE_DETAIL("(%s) : track_name = %s", __func__, name == nullptr ? "" : name);
  if (name == nullptr) {
    OT_TRACE_ERROR(" Invalid arg : (%s) :", __func__);
    return status_ok;
  }
  ot_track* track = hash_db_get_track_item(name);
  if (track == nullptr) {
    OT_TRACE_DETAIL(" (%s) : track %s doesnt exist", __func__, name);
    return status_ok;
  }
  stop_ot_timer(track->poll_timer);
  if (!holds_probe(*track)) {
    return status_ok;
  }
  qmon_stats stats;
  shm_read_qmon_stats(static_cast<std::int32_t>(track->object.probe.operation_id), &stats);
  take_over(*track, stats);
  const int status = object_tracking_set_track_state_in_ledger(name, track->source_state);
  if (status == status_ok) {
    set_ot_shm_poll_wait_timer(track->poll_timer);
  }
  return status;
}

}  // namespace ot
