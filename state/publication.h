// The one entry through which every source reports a state, the delays up and down, and publication
// itself. Main thread.
#pragma once

#include "core/track_type.h"

namespace ot {

struct ot_timer_ctx;
struct ot_track;

// Reports `state` for the track: published at once, or when its delay has run out; a report of the
// published state cancels a pending change, a repeat of the pending one leaves its delay running.
// 0 (also for an unknown track), 12, 22 when the track has no delay timer, or the ledger's result.
int object_tracking_set_track_state_in_ledger(const char* name, track_state state);

// Before a track is untied from its source: a track that is up reports unknown, not down. The
// report's result, 0 for a track that is not up.
int withdraw_up_state(ot_track& track);

// Publishes now: record, TRACK_INFO message, ledger item, change notification, event, and a request
// to recalculate the lists. Also for a track that is gone: its last pending state is still written.
// The ledger write's result, 0 while no ledger is bound.
int object_tracking_set_track_state_in_ledger_after_timer_expired(const char* name,
                                                                  track_state state);

// Hook of the delay timers.
void publish_after_delay(const ot_timer_ctx& ctx);

}  // namespace ot
