// The list of tracks that follow one object, as every source's table keeps it: names only, newest
// first. The object's entry owns the nodes. Main thread.
#pragma once

#include "core/track.h"

namespace ot {

struct track_name_node {
  track_name name;
  track_name_node* next = nullptr;
};
static_assert(sizeof(track_name_node) == 48);

// A node of that name (at most 39 characters), or null without memory.
track_name_node* new_track_name_node(const char* name) noexcept;

// Puts the node at the head.
void push_track_name(track_name_node*& head, track_name_node* node) noexcept;

// Unlinks and frees the first node of that name (compared over 40 characters). False when there is
// none.
bool remove_track_name(track_name_node*& head, const char* name) noexcept;

void free_track_names(track_name_node*& head) noexcept;

// Gives every track of the list the source state `state` and publishes those that had another. A
// missing track (traced as `who`'s error) or a failed publication ends the walk.
void set_following_tracks(const track_name_node* head, track_state state, const char* who);

}  // namespace ot
