// The published states as they stand in the ledger, one item a track below
// "/oper/gl/object-tracking/": u32 1 up, 2 anything else. Main thread.
#pragma once

#include "core/track_type.h"
#include "platform/ledger.h"

namespace ot {

struct ot_track;

inline constexpr const char* published_states_path = "/oper/gl/object-tracking/";

// The process's connection for publishing, and whether it is bound.
extern ledger_conn* ot_ha_ledger;
extern bool is_bound_ot_ha_ledger;

// Binds ot_ha_ledger. Before any state is published. Status code.
int ot_ha_ledger_bind() noexcept;
void ot_ha_ledger_unbind() noexcept;

// Writes the track's item through ot_ha_ledger, which must be bound. Status code.
int ledger_write_track_state(const char* name, track_state state) noexcept;

// Read the state last published for a track, also by an earlier process of this boot. On failure
// `ret_state` is unknown and the status code says why; a program without the ledger library gets
// ledger_library_missing. The first is the probe source's, the second everybody else's.
int object_tracking_ledger_get_prb_track_state(const char* name, track_state* ret_state) noexcept;
int ot_ledger_get_track_state(const char* name, track_state* ret_state) noexcept;

// The restart flag: whether this process follows an earlier one of the same boot, by its start
// count (1 for the first start). 1 after the second or a later start, else 0.
void ot_set_restart(std::uint32_t start_count) noexcept;
std::uint32_t ot_is_restart() noexcept;

// After a restart, gives a new record the state last published for its name.
void take_over_published_state(ot_track& track) noexcept;

// After a restart, for a track that has taken over its published state: what is published of an
// unknown state is the same as of down, so a track whose object is unknown was unknown.
void take_published_down_for_unknown(ot_track& track) noexcept;

// Deletes the track's item and queues the notification of it. An absent item is no failure.
int object_tracking_delete_item_from_ledger(const char* name) noexcept;

}  // namespace ot
