// Making and giving up track records: what every source does alike when configuration names a track
// for the first time. `who` is the caller's name for traces. Main thread.
#pragma once

#include <cstdint>

#include "core/track.h"

namespace ot {

// Fills `ret` with a new record: name, type, source state, creation time as last change, and a
// stopped delay timer whose context carries `source_state`. 0, or 12 with nothing left behind,
// which is traced unless `who` is null.
int new_track_record(const char* name, track_type type, track_state source_state, const char* who,
                     ot_track* ret) noexcept;

// Puts a copy of the record into `tracks_table`. When there is no memory every track is dropped,
// not only this one: a table that could not take a track is not trusted to hold any. On failure the
// record's timers are released. The table's result.
int add_track_record(const ot_track& track, const char* who) noexcept;

// Gives the record's timers up; a running delay still publishes before it goes.
void release_track_timers(ot_track& track) noexcept;

// Releases what the track's object owns, of whatever kind the track has become; the rest of the
// object stays. Before the track loses its type.
void release_object(ot_track& track) noexcept;

// Empties what the track follows, releasing what it owns. Before a change of type.
void forget_object(ot_track& track) noexcept;

// Drops every track with what it owns, and the table.
void drop_all_tracks() noexcept;

// Remembers the type number of a type item that was applied.
void set_configured_type(const char* name, std::uint32_t type_number) noexcept;

}  // namespace ot
