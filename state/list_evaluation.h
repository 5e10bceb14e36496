// The evaluation of list tracks: all of them together, in passes, a short moment after something
// that may matter to them. Main thread.
#pragma once

#include <cstdint>

namespace ot {

struct ot_track;

// Compute a list and publish a source state that changed: the `calculate` functions of the two
// kinds of lists. Boolean lists judge members by their published states, threshold lists by their
// source states. `done` becomes 1 when it was computed, and 0 when it has to wait for a list
// member. 0, or the publication's error.
int object_tracking_calc_bool_track_state(ot_track* track, std::uint32_t* done);
int object_tracking_calc_thld_track_state(ot_track* track, std::uint32_t* done);

// Requests a recalculation: (re)starts the 20 ms calculation timer, so that a burst of requests
// costs one calculation.
void object_tracking_calc_tracks_state();

// The calculation, the timer's work: passes over the track table until every list is computed or a
// pass has computed none. Lists that contain each other are never computed and keep their states. A
// failed publication ends the calculation.
void object_tracking_calc_tracks_state_after_timer_expired();

}  // namespace ot
