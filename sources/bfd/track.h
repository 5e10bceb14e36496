// Tracks of type BFD: their records and entries, made with the session they follow. Main thread.
#pragma once

#include <cstdint>
#include <memory>

#include "sources/bfd/pending.h"
#include "sources/bfd/table.h"

namespace ot {

// Makes the track and asks for its session, or queues the record while the BFD service is away. 0
// or an error; a track of that name must not exist.
int object_tracking_type_bfdprb_create(std::unique_ptr<bfd_cfg> cfg);

// Publishes down and asks for the session to be given up; the entry goes when the BFD service has
// confirmed. While configuration waits for the BFD service nothing happens. 0 or an error.
int object_tracking_type_bfdprb_delete(const char* name);

// Makes the record and its entry and publishes down. `ret` gets the track, also one that exists
// already: that is an error (-1). 0, -1 or an error code.
int ot_create_bfd_track_entry(const bfd_cfg& cfg, ot_track** ret);

// Puts the track into the session's entry, or makes one with this state. 0, or an error code.
int insert_track_to_bfdprb_entry(const char* name, const bfd_session_key& key,
                                 track_state state) noexcept;

// Gives the entry's state to its track, and publishes a change.
void object_tracking_change_bfdprb_state(const bfdprb_entry& entry);

// Creates the tracks and sessions of all waiting configuration; the first failure to make a track
// ends it. 0 or an error code.
int ot_bfd_create_all_sessions();

}  // namespace ot
