// Tracks of type probe.
//
// A probe operation is run by the probe service, an optional package of its own. Its results stand
// in shared memory, and nothing reports that one is new, so a track reads its operation's latest
// result every two seconds: success is up, no result yet is unknown, everything else down.
//
//   statistics   the package's libraries and the table in shared memory
//   table        the operations that tracks follow
//   create       the first reading, the record, its timers, the tie, and the start of the poll
//   track        untying, and the poll
//   config       verifying and applying the item that names the operation
//
// Each record has two timers: the delay of every track, and the poll, which starts itself anew
// until the track follows something else. An entry can hold several tracks, but configuration lets
// only one follow an operation. The libraries are loaded by the first reading and stay loaded.
// Without the package the configuration is refused; when it goes later, what is read is no result.
// No message goes to the probe service and no operation is started or stopped here. Main thread.
#pragma once

#include <cstdint>

#include "platform/ledger_config.h"
#include "sources/objects.h"

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

// The poll: reads the operation's latest result, publishes the state it means and goes on in two
// seconds, unless the publication failed. `value` is not used. The publication's result; 0 for a
// track that is gone or follows something else: its poll ends.
int ot_prb_read_shm_after_timer_expired(const char* name, std::uint32_t value);

// Verifier of the type node: accepts. 22 without a track name.
int object_tracking_type_prb_verify(const ledger_change& change, ledger_verdict& verdict);

// Verifier of op_id: refuses while the probe package is missing, for a track of another type, and
// for an operation that a track follows already. An operation's id takes the place of the type
// number in the type check, so an existing probe track cannot be given another operation in place.
int object_tracking_prb_verify(const ledger_change& change, ledger_verdict& verdict);

// Apply function of type/prb/#/op_id. 0, 22 without a track name, or the tie's error.
int object_tracking_type_prb_apply(const ledger_change& change);

}  // namespace ot
