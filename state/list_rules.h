// How one list track is computed from its members. Boolean lists judge members by their published
// states, threshold lists by their source states. Main thread.
#pragma once

#include <cstdint>

#include "core/track.h"

namespace ot {

// While one lives, a member's track is looked up by name once and remembered: no track comes or
// goes during a calculation.
class list_calculation_scope {
 public:
  list_calculation_scope() noexcept;
  ~list_calculation_scope();
  list_calculation_scope(const list_calculation_scope&) = delete;
  list_calculation_scope& operator=(const list_calculation_scope&) = delete;
};

// Compute a list and publish a source state that changed. `done` becomes 1 when it was computed,
// and 0 when it has to wait for a list member. 0, or the publication's error.
int object_tracking_calc_bool_track_state(ot_track* track, std::uint32_t* done);
int object_tracking_calc_thld_track_state(ot_track* track, std::uint32_t* done);

}  // namespace ot
