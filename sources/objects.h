// What all sources are made of.
//
// A source watches one kind of object of the router (interfaces, routes, probe operations, BFD
// sessions) for the tracks that name one. Every source's folder has the same parts:
//
//   table   the objects that tracks follow: an entry each, with the names of its followers
//   track   tying a track to its object, letting it go, and passing the object's changes on
//   config  applying the configuration items; config_item.h has what they have in common
//   client  the connection to the router's service; routes have two, vrf and fib
//   kind    the row that the rest of the service knows the source by
//
// Data goes one way. Configuration makes or adopts the track's record, ties its name to the
// object's entry, which is made when need be, and reports the first state. Later the service's
// callbacks find the entry and report the new state for its followers. Every report goes through
// the one entry of state/publication.h: delays, the ledger, events and lists are behind that, and
// no source knows of them.
//
// A table owns its entries and an entry the nodes with its followers' names. Records are the track
// table's. From an entry to a record and back it goes by name, never by pointer, since either may
// have gone. Configuration that comes while a service is away waits in a queue (waiting_queue.h).
//
// Everything runs on the main thread; the BFD client alone has a thread of its own, and hands its
// events over. A table that has no memory for an entry is not trusted any more: all of its entries
// are dropped, while the tracks stay.
#pragma once

#include <cstdint>

#include "core/debug.h"
#include "core/hash_db.h"
#include "core/track.h"
#include "platform/err_string.h"
#include "platform/status.h"

namespace ot {

// --- Followers -----------------------------------------------------------------------------------

// A track that follows an object, by name; newest first.
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

// --- Tables --------------------------------------------------------------------------------------

// The text that an object is found by.
struct object_key {
  char text[256];
};

// The table of one kind: `entries` with Entry records, whose member `tracks` lists the followers.
template <typename Entry>
struct object_table {
  hash_db& entries;
  std::uint32_t buckets;
  std::uint16_t key_size = sizeof(object_key);

  // 0 or 12.
  [[nodiscard]] int create() const noexcept {
    return hash_db_create_str(entries, buckets, key_size, sizeof(Entry));
  }
  // Frees every entry with its nodes, and the table.
  void drop_all() const noexcept {
    for (auto* entry = hash_db_first_data<Entry>(entries); entry != nullptr;
         entry = hash_db_next_data<Entry>(entries)) {
      free_track_names(entry->tracks);
    }
    hash_db_destroy(entries);
  }
  [[nodiscard]] Entry* find(const char* key) const noexcept {
    return hash_db_find_data<Entry>(entries, key);
  }
  [[nodiscard]] int add(const char* key, const Entry& entry) const noexcept {
    return hash_db_add_new_item(entries, key, &entry);
  }
  [[nodiscard]] int remove(const char* key) const noexcept { return hash_db_delete(entries, key); }
};

// --- Tying and untying ---------------------------------------------------------------------------

// `status` as it came; a failure is traced as "(who) : call failed - text".
int traced(const char* who, const char* call, int status) noexcept;

// How a kind takes a follower into its table. Trace formats get the inserting function's name.
template <typename Entry>
struct follower_row {
  int (*add)(const Entry& entry) noexcept;
  void (*drop_all)() noexcept;
  const char* failed = "(%s) : hash_db_add_new_item failed - no memory to add item - %s";
  const char* found = nullptr;  // null: not traced
  const char* absent[2] = {};
};

// Puts `node` into the entry that is `present`, or adds `fresh` with it. 0 or the table's error;
// the node stays the caller's then.
template <typename Entry>
int insert_follower(const follower_row<Entry>& row, const char* who, track_name_node* node,
                    Entry* present, Entry fresh) noexcept {
  const auto trace = [who](const char* format) noexcept {
    if (format != nullptr) {
      OT_TRACE_DETAIL(format, who);
    }
  };
  if (present != nullptr) {
    trace(row.found);
    push_track_name(present->tracks, node);
    return status_ok;
  }
  trace(row.absent[0]);
  trace(row.absent[1]);
  node->next = nullptr;
  fresh.tracks = node;
  const int status = row.add(fresh);
  if (status != status_ok) {
    OT_TRACE_ERROR(row.failed, who, err_string(status));
    row.drop_all();
  }
  return status;
}

// Makes the node of the track and hands it to `insert`, whose name for traces is `insert_name`. 0,
// 12, or what `insert` returned: then the node is freed.
template <typename Insert>
int tie_track(const char* name, const char* who, const char* insert_name, Insert insert) noexcept {
  track_name_node* node = new_track_name_node(name);
  if (node == nullptr) {
    OT_TRACE_ERROR("(%s) : malloc failed ", who);
    return no_memory;
  }
  const int status = traced(who, insert_name, insert(node));
  if (status != status_ok) {
    delete node;
  }
  return status;
}

// Ends the track's type: `untie` (with its name for traces) lets the object go, `withdraw` takes
// back what the track still reports. 0, also for a missing track, or the first error.
int end_track_type(const char* name, const char* who, const char* untie_name,
                   int (*untie)(const char* name), int (*withdraw)(ot_track& track));

}  // namespace ot
