// The evaluation of list tracks: all of them together, in passes, a short moment after something
// that may matter to them. Main thread.
#pragma once

namespace ot {

// Requests a recalculation: (re)starts the 20 ms calculation timer, so that a burst of requests
// costs one calculation.
void object_tracking_calc_tracks_state();

// The calculation, the timer's work: passes over the track table until every list is computed or
// there were as many passes as lists. Lists that contain each other are never computed and keep
// their states. A failed publication ends the calculation.
void object_tracking_calc_tracks_state_after_timer_expired();

}  // namespace ot
