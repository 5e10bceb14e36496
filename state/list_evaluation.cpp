// Lists may contain lists, in any order of the table. A list waits in a pass while one of its list
// members is not computed yet, so a chain of lists needs at most as many passes as there are lists,
// and a cycle needs more than there are.

#include "state/list_evaluation.h"

#include <cstdint>

#include "core/debug.h"
#include "core/track.h"
#include "core/track_kind.h"
#include "platform/status.h"
#include "state/list_rules.h"
#include "state/timers.h"

namespace ot {
namespace {

// Marks every list as not computed; how many there are.
std::uint32_t mark_lists() noexcept {
  std::uint32_t lists = 0;
  for (auto* track = hash_db_first_data<ot_track>(tracks_table); track != nullptr;
       track = hash_db_next_data<ot_track>(tracks_table)) {
    track->uncalculated = is_list_type(track->type) ? 1 : 0;
    lists += track->uncalculated;
  }
  OT_TRACE_DETAIL("Timer_expired:Total tracks(list type): set to uncalced: %d",
                  static_cast<int>(lists));
  return lists;
}

// Computes one list if it can be; its publication's result.
int compute(ot_track& track, std::uint32_t& remaining) {
  OT_TRACE_DETAIL("Timer_expired:computin track: %s", track.name.c_str());
  std::uint32_t done = 0;
  const int status = track_kind_of(track.type)->calculate(&track, &done);
  if (status == status_ok && done == 1) {
    --remaining;
    OT_TRACE_DETAIL("Timer_expired: num uncalced: %d", static_cast<int>(remaining));
  }
  return status;
}

int make_pass(std::uint32_t& remaining) {
  for (auto* track = hash_db_first_data<ot_track>(tracks_table); track != nullptr;
       track = hash_db_next_data<ot_track>(tracks_table)) {
    OT_TRACE_DETAIL("Timer_expired:For track: %s", track->name.c_str());
    if (!is_list_type(track->type) || track->uncalculated == 0) {
      OT_TRACE_DETAIL("Timer_expired:skipping track: %s", track->name.c_str());
      continue;
    }
    const int status = compute(*track, remaining);
    if (status != status_ok) {
      return status;
    }
  }
  return status_ok;
}

}  // namespace

void object_tracking_calc_tracks_state() {
  OT_TRACE_ENTRY();
  set_ot_wait_timer(tracks_calc_timer);
}

void object_tracking_calc_tracks_state_after_timer_expired() {
  OT_TRACE_ENTRY();
  const list_calculation_scope calculation;
  std::uint32_t remaining = mark_lists();
  std::uint32_t max_loop = remaining;
  while (max_loop != 0 && remaining != 0) {
    if (make_pass(remaining) != status_ok) {
      return;
    }
    --max_loop;
    OT_TRACE_DETAIL("Timer_expired: max_loop: %d", static_cast<int>(max_loop));
  }
  OT_TRACE_DETAIL("Timer_expired: After Initial max_loop: %d", static_cast<int>(max_loop));
  // What is left is in a cycle or behind one. It keeps its states and nothing is published for it.
}

}  // namespace ot
