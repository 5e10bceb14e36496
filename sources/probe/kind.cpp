// Probe tracks as a kind: the result of an operation of the probe service.

#include <cstdio>

#include "config/expected_tracks.h"
#include "core/debug.h"
#include "core/track.h"
#include "core/track_kind.h"
#include "platform/err_string.h"
#include "platform/probe_service.h"
#include "platform/status.h"
#include "show/view.h"
#include "sources/probe/statistics.h"
#include "sources/probe/table.h"
#include "sources/probe/track.h"
#include "state/timers.h"

namespace ot {
namespace {

constexpr std::uint32_t succeeded = 1;  // a return code

constexpr track_kind_type types[] = {
    {track_type::probe, "reachability", "Reachability"},
};

constexpr ledger_registration leaves[] = {
    {"track/*/type/prb/#1/op_id", ledger_row_handled, object_tracking_prb_verify,
     object_tracking_type_prb_apply, ledger_turn::usual, 0, expect_operation},
};

int detach(ot_track& track) {
  OT_TRACE_DETAIL(" Found track_type : PRB. for track name %s  Delete this track from prb entry",
                  track.name.c_str());
  return delete_track_from_prb_entry(track.name.c_str());
}

void fill_object(const ot_track& track, track_type_info& info) noexcept {
  const probe_object& probe = track.object.probe;
  if (probe.operation_id == 0) {
    return;
  }
  info.QmonTracks.QmonOpId = probe.operation_id;
  info.QmonTracks.RTT = probe.return_code == succeeded ? probe.response_time : 0;
  info.QmonTracks.ReturnCode = probe.return_code;
}

object_column show_object(const track_info_brief__& record) {
  char text[object_column::capacity];
  std::snprintf(text, sizeof text, "QMON Operation %d ",
                static_cast<int>(record.TrackTypeInfo.QmonTracks.QmonOpId));
  return object_column(text);
}

// The reachability of a probe is judged by its return code, not by the track's state.
rest_of_record show_detail(const printed_track& track) {
  constexpr std::uint32_t not_running = 0;
  constexpr std::uint32_t timed_out = 2;
  const prb_track_info__& probe = track.record.TrackTypeInfo.QmonTracks;
  std::printf("\tProbe Monitor %d reachability \n", static_cast<int>(probe.QmonOpId));
  if (probe.ReturnCode == not_running) {
    std::printf("\tqmon operation not in progress \n");
    return rest_of_record::left_out;
  }
  if (probe.ReturnCode <= timed_out) {
    print_state(track, probe.ReturnCode == succeeded);
  }
  print_changes(track.record);
  std::printf("\tLatest operation return code: %s \n", qmon_retCodeToStr(probe.ReturnCode));
  std::printf("\tLatest RTT (millisecs) : %u \n", probe.RTT);
  return rest_of_record::printed;
}

// Probe tracks whose operation has no result.
std::uint32_t operations_without_result() noexcept {
  std::uint32_t count = 0;
  for (const auto* track = hash_db_first_data<ot_track>(tracks_table); track != nullptr;
       track = hash_db_next_data<ot_track>(tracks_table)) {
    const bool waits =
        track->type == track_type::probe && track->source_state == track_state::unknown;
    count += waits ? 1U : 0U;
  }
  return count;
}

constexpr service_of_tracks service = {router_service::probe_service, "probe",
                                       operations_without_result, look_for_probe_service};

void poll_expired(const ot_timer_ctx& ctx) {
  OT_TRACE_DETAIL("PRB_SHM_POLL_INTERVAL timer triggered for track : %s", ctx.name.c_str());
  const int status = ot_prb_read_shm_after_timer_expired(ctx.name.c_str(), ctx.value);
  if (status != status_ok) {
    OT_TRACE_ERROR("(%s) : ot_prb_read_shm_after_timer_expired failed- %s",
                   "handle_ot_wtm_timer_expired", err_string(status));
  }
}

constexpr start_step tables[] = {
    {"probe table",
     [](const start_context&) {
       set_timer_hook(timer_kind::probe_poll, poll_expired);
       return prb_table_create();
     },
     []() noexcept {
       drop_all_probes();
       release_probe_package();
     }},
};

}  // namespace

extern const track_kind probe_kind = {
    .types = types,
    .leaves = leaves,
    .least_delay = 2,  // operations are polled every 2 s
    .detach = detach,
    .detach_failed = "(%s) : delete_track_from_prb_entry failed - %s",
    .fill_object = fill_object,
    .record_key = "type-prb",
    .show_object = show_object,
    .show_detail = show_detail,
    .service = &service,
    .tables = tables,
};

}  // namespace ot
