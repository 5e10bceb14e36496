// Tracks of type BFD.
//
// A track follows one session, known by interface and destination; its rate and debounce count go
// to the BFD service with the request for it. Unlike the other sources this one makes the track
// itself, and nothing but it: a track that exists is refused, so the type comes before delays, and
// any change of the item's path is a deletion and a creation.
//
//   client   the BFD thread, the callbacks, and the requests for sessions
//   events   what the callbacks bring, applied on the main thread
//   table    the sessions that tracks follow
//   track    making a track with its session, its end, and its states
//   config   verifying and applying the item
//
// The BFD client may block and calls back whenever it likes, so it has the thread "ot_bfd" with a
// loop of its own. That thread touches no track, table or timer: each callback copies its event
// into a block of its own, queues it under a lock and posts to the main loop, which applies all
// that it finds, in the order in which it came. Requests are made by the main thread and do not
// wait; their results come as events, matched by session and by the number of the request, since a
// session may have been asked for again before the end of the earlier one is confirmed. A session's
// entry therefore outlives its last track: it goes when the service has confirmed the deletion.
//
// While the service is not connected, configuration waits in a queue and deletions do nothing.
// Packets, timers and the choice of the engine are the service's, not ours. Main thread.
#pragma once

#include <cstdint>
#include <memory>

#include "platform/ledger_config.h"
#include "platform/linked_queue.h"
#include "sources/bfd/table.h"

namespace ot {

// One session as configured.
struct bfd_cfg : lq_link {
  track_name name;
  fixed_text<64> interface;
  std::uint32_t destaddress = 0;  // network byte order
  std::uint32_t rate = 0;
  std::uint32_t debounce_count = 0;
  std::uint32_t type_number = 0;  // of the configuration path
};

// Makes the track and asks for its session, or queues the record while the BFD service is away. 0
// or an error; a track of that name must not exist.
int object_tracking_type_bfdprb_create(std::unique_ptr<bfd_cfg> cfg);

// Publishes down and asks for the session to be given up; the entry goes when the BFD service has
// confirmed. While configuration waits for the BFD service nothing happens. A track of another type
// has no session to give up. 0 or an error.
int object_tracking_type_bfdprb_delete(const char* name);

// Makes the record and its entry and publishes down. `ret` gets the track, also one that exists
// already: that is an error (-1). 0, -1 or an error code.
int ot_create_bfd_track_entry(const bfd_cfg& cfg, ot_track** ret);

// Puts the track into the session's entry, or makes one with this state. 0, or an error code.
int insert_track_to_bfdprb_entry(const char* name, const bfdprb_key& key,
                                 track_state state) noexcept;

// Gives the entry's state to its track, and publishes a change.
void object_tracking_change_bfdprb_state(const bfdprb_entry& entry);

// --- Configuration ------------------------------------------------------------------------------
// Rate, debounce count and interface stand in the item's path, the destination is its value.

// Verifier: accepts. 22 without a track name.
int object_tracking_type_bfdprb_verify(const ledger_change& change, ledger_verdict& verdict);

// Apply function. A set to the same destination changes nothing, whatever else it carries. 0, 22
// when the path lacks a field, 12, or the error of the creation or deletion.
int object_tracking_type_bfdprb_apply(const ledger_change& change);

// Non-zero while configuration waits for the BFD service.
extern std::uint32_t is_bfd_config_pending;

// Creates the tracks and sessions of all waiting configuration; the first failure to make a track
// ends it. 0 or an error code.
int ot_bfd_create_all_sessions();

// Frees what waits: the end of a service in a test.
void drop_bfd_cfgs() noexcept;
// How many wait.
std::uint32_t bfd_cfg_count() noexcept;

}  // namespace ot
