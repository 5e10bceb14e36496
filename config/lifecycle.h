// The end of a track: its existence item is deleted.
#pragma once

#include "platform/ledger_config.h"

namespace ot {

// Apply function of the existence item: a delete tears the track down, anything else does nothing.
// 0, 22 without a track name, or the teardown's error.
int object_tracking_track_apply(const ledger_change& change);

// Detaches the track from what it follows, drops its record and its ledger item. A failed detach
// keeps the track; 12 when the record cannot be removed. 0 for an absent track.
int object_tracking_track_delete(const char* name);

// Published states that no track stands for are deleted: those of tracks that a late delay brought
// back, or that were deleted in the moment the process was killed. A track that is configured and
// still waits for its service keeps its state. At the start, behind the stored configuration. 0 or
// 12.
int delete_states_without_track() noexcept;

}  // namespace ot
