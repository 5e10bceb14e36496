// The request for a recalculation of the list tracks.

#include "state/list_evaluation.h"

#include "core/debug.h"
#include "state/timers.h"

namespace ot {

void object_tracking_calc_tracks_state() {
  OT_TRACE_ENTRY();
  set_ot_wait_timer(tracks_calc_timer);
}

}  // namespace ot
