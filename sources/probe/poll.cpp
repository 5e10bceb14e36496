// One poll of a probe track. A result that cannot be read is no result: the track becomes unknown
// and is polled on.

#include "sources/probe/poll.h"

#include "core/debug.h"
#include "core/track.h"
#include "platform/status.h"
#include "sources/probe/statistics.h"
#include "state/publication.h"
#include "state/timers.h"

namespace ot {
namespace {

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
