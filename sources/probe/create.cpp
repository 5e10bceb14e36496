// Making a track follow a probe operation: the first reading, the record, its two timers, the tie,
// the first publication and the start of the poll, in this order.

#include <memory>

#include "platform/clock.h"
#include "sources/probe/statistics.h"
#include "sources/probe/track.h"
#include "state/ledger_state.h"
#include "state/publication.h"
#include "state/timers.h"
#include "state/track_record.h"

namespace ot {
namespace {

constexpr const char* create_name = "object_tracking_type_prb_create";

void trace_state(track_state state) noexcept {
  if (state == track_state::up) {
    OT_TRACE_DETAIL(" Track set to UP");
  } else if (state == track_state::down) {
    OT_TRACE_DETAIL(" Trcak was not UP");
    OT_TRACE_DETAIL(" Track set to DOWN");
  } else {
    OT_TRACE_DETAIL(" Track set to Unknown");
  }
}

// Without the package there is no result, and so no state.
int read_first(std::int32_t op_id, qmon_stats& ret) noexcept {
  const int status = shm_read_qmon_stats(op_id, &ret);
  if (status == probe_package_not_available) {
    OT_TRACE_DETAIL("Manageability package is not available");
    return status_ok;
  }
  if (status != status_ok) {
    OT_TRACE_ERROR(" (%s) : shm_read failed ", create_name);
    OT_TRACE_DETAIL(" rc = %s, after shm_read", err_string(status));
  }
  return status;
}

void set_object(ot_track& track, std::int32_t op_id, const qmon_stats& stats) noexcept {
  forget_object(track);
  track.type = track_type::probe;
  track.object.probe.operation_id = static_cast<std::uint32_t>(op_id);
  track.object.probe.response_time = stats.latestResponseTime;
  track.object.probe.return_code = stats.latestReturnCode;
  track.source_state = state_of_return_code(stats.latestReturnCode);
}

// A track that exists takes its published state from the ledger, after a restart or not.
void adopt_track(ot_track& track, std::int32_t op_id, const qmon_stats& stats) noexcept {
  set_object(track, op_id, stats);
  object_tracking_ledger_get_prb_track_state(track.name.c_str(), &track.state);
  track.seconds_last_change = clock_realtime_seconds();
  track.state_change_counter = 0;
}

// A record without timers.
int make_track(const char* name, std::int32_t op_id, const qmon_stats& stats) noexcept {
  ot_track track;
  track.name.assign(name);
  set_object(track, op_id, stats);
  track.seconds_last_change = clock_realtime_seconds();
  if (ot_is_restart() != 0) {
    object_tracking_ledger_get_prb_track_state(name, &track.state);
    take_published_down_for_unknown(track);
  }
  const int status = add_track_record(track, create_name);
  if (status == status_ok) {
    OT_TRACE_DETAIL("track %s: added to the hash table", name);
  }
  return status;
}

// The track's context goes over to a new timer. A delay that runs in the old one still expires
// there, and publishes what is pending then.
int renew_delay_timer(ot_track& track) noexcept {
  const auto state = static_cast<std::uint32_t>(track.source_state);
  const char* name = track.name.c_str();
  wtm_leaf* old_leaf = track.delay_timer;
  const bool runs = old_leaf != nullptr && wtm_timer_leaf_running(old_leaf);
  std::unique_ptr<ot_timer_ctx> late;
  std::unique_ptr<ot_timer_ctx> fresh;
  ot_timer_ctx* ctx = get_timer_ctx(old_leaf);
  if (runs) {
    late.reset(new_timer_ctx(timer_kind::track_delay, name, pending_of_track));
  }
  if (ctx == nullptr) {
    fresh.reset(new_timer_ctx(timer_kind::track_delay, name, state));
    ctx = fresh.get();
  }
  wtm_leaf* leaf = nullptr;
  if (ctx != nullptr && (late != nullptr || !runs)) {
    ctx->type = static_cast<std::uint32_t>(timer_kind::track_delay);
    ctx->value = state;
    leaf = set_ot_delay_timer(ctx);
  }
  if (leaf == nullptr) {
    OT_TRACE_ERROR("(%s) : malloc() failed.", create_name);
    return no_memory;
  }
  (void)fresh.release();  // the leaf holds it now
  if (old_leaf != nullptr) {
    wtm_timer_leaf_set_context(old_leaf, late.release());
    release_ot_timer(old_leaf);
  }
  track.delay_timer = leaf;
  OT_TRACE_DETAIL(" Reset the timer values ");
  return status_ok;
}

// A track without a poll timer is not polled, and goes on otherwise.
int renew_poll_timer(ot_track& track) noexcept {
  ot_timer_ctx* ctx = new_timer_ctx(timer_kind::probe_poll, track.name.c_str(), 0);
  if (ctx == nullptr) {
    OT_TRACE_ERROR("(%s) : malloc() failed.", create_name);
    return no_memory;
  }
  release_ot_timer(track.poll_timer);
  track.poll_timer = set_ot_shm_poll_timer(ctx);
  if (track.poll_timer == nullptr) {
    delete ctx;
  }
  return status_ok;
}

int tie(const ot_track& track, std::int32_t op_id) noexcept {
  return tie_track(track.name.c_str(), create_name, "insert_track_to_prb_entry",
                   [&track, op_id](track_name_node* node) noexcept {
                     return insert_track_to_prb_entry(node, track.source_state, op_id);
                   });
}

int follow(ot_track& track, std::int32_t op_id) {
  int status = renew_poll_timer(track);
  if (status == status_ok) {
    status = tie(track, op_id);
  }
  if (status == status_ok) {
    status = object_tracking_set_track_state_in_ledger(track.name.c_str(), track.source_state);
  }
  if (status == status_ok && track.poll_timer != nullptr) {
    set_ot_shm_poll_wait_timer(track.poll_timer);
  }
  return status;
}

}  // namespace

int object_tracking_type_prb_create(const char* name, std::int32_t op_id) {
  OT_TRACE_ENTRY();
  qmon_stats stats;
  int status = read_first(op_id, stats);
  if (status != status_ok) {
    return status;
  }
  trace_state(state_of_return_code(stats.latestReturnCode));
  ot_track* track = hash_db_get_track_item(name);
  const bool is_new = track == nullptr;
  if (is_new) {
    status = make_track(name, op_id, stats);
    if (status != status_ok) {
      return status;
    }
    track = hash_db_get_track_item(name);
  } else {
    adopt_track(*track, op_id, stats);
  }
  status = renew_delay_timer(*track);
  if (status != status_ok) {
    if (is_new) {
      hash_db_delete(tracks_table, name);
    }
    return status;
  }
  return follow(*track, op_id);
}

}  // namespace ot
