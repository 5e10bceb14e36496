// Tracks of type probe: tying them to a probe operation and letting them go. Main thread.
#pragma once

#include <cstdint>

#include "core/track.h"
#include "sources/track_names.h"

namespace ot {

// Ties the track, creating it when need be, to the operation, publishes its state and starts the
// poll. 0, 12 or another error code.
int object_tracking_type_prb_create(const char* name, std::int32_t op_id);

// Unties the track; an up track is published as down at once. It has no type afterwards. 0 or an
// error code.
int object_tracking_type_prb_delete(const char* name);

// Puts `node` into the operation's entry, or makes one with this state. 0 or the table's error; the
// node stays the caller's then, and every probe entry is dropped.
int insert_track_to_prb_entry(track_name_node* node, track_state state,
                              std::int32_t op_id) noexcept;

// Takes the track out of its operation's entry; the last one stops the poll and takes the entry
// along. 0 or an error code.
int delete_track_from_prb_entry(const char* name);

}  // namespace ot
