// Delay up and delay down, in whole seconds. The first delay item that names a track creates it.
#pragma once

#include <cstdint>

#include "platform/ledger_config.h"

namespace ot {

// Apply functions of the items delay_up and delay_down. 0, 12, or 22 without a track name.
int object_tracking_delay_up_apply(const ledger_change& change);
int object_tracking_delay_down_apply(const ledger_change& change);

inline constexpr int keep_delay = -1;

// Sets the delays of a track, seconds; keep_delay leaves one as it is. `create`: whether an absent
// track is made. A delay that is running goes on as it was started. 0 or 12.
int object_tracking_set_create_track_delay(const char* name, int delay_up, int delay_down,
                                           bool create) noexcept;

}  // namespace ot
