// The evaluation of list tracks: all of them together, in passes, a short moment after something
// that may matter to them. Main thread.
#pragma once

namespace ot {

// Requests a recalculation: (re)starts the 20 ms calculation timer, so that a burst of requests
// costs one calculation.
void object_tracking_calc_tracks_state();

}  // namespace ot
