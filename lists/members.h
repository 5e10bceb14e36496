// The members of a list track: a chain owned by the track, newest first. Members name tracks that
// may not exist. Main thread.
#pragma once

#include <cstdint>

#include "core/track.h"

namespace ot {

// Puts a new member at the head. False without memory.
bool add_list_member(ot_track& track, const char* name, std::uint32_t value) noexcept;

// The first member of that name (compared over 40 characters), or null.
list_member* find_list_member(const ot_track& track, const char* name) noexcept;

// Unlinks and frees the first member of that name, if any.
void remove_list_member(ot_track& track, const char* name) noexcept;

void free_list_members(ot_track& track) noexcept;

// Gives the list up: an up list is published as unknown first (a failure is returned and keeps the
// members), then all members go.
int clear_list(ot_track& track);

// Gives the track the type `type` of a list's item. What it followed before is forgotten, except
// that a list that becomes another kind of list keeps its members.
void become_list(ot_track& track, track_type type) noexcept;

}  // namespace ot
