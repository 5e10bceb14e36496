// The track record and `tracks_table`, the table of all configured tracks.
#pragma once

#include <cstdint>

#include "core/hash_db.h"
#include "core/track_type.h"
#include "platform/fixed_text.h"

namespace ot {

struct wtm_leaf;

struct ot_track;

// One member of a list track, newest first; owned by its track.
struct list_member {
  list_member* next = nullptr;
  track_name name;
  std::uint32_t value = 0;  // boolean lists: 1 for "not"; threshold lists: the weight
};

// How far a calculation has come with a list; of no meaning outside it.
struct list_progress {
  list_member* member = nullptr;      // the one that it waits for; null: none was judged yet
  ot_track* awaited = nullptr;        // that member's track
  std::uint32_t sum = 0;              // threshold lists: the weights of those before it that are up
  std::uint32_t count = 0;            // threshold lists: how many stand before it
  std::uint32_t place = 0;            // of any track: in the order of the table
  ot_track* first_waiting = nullptr;  // the lists that wait for this one
  ot_track* next_waiting = nullptr;   // the next that waits for the same list
};

// What a track follows, by its type.
struct interface_object {
  fixed_text<64> name;
};
struct route_object {
  std::uint32_t prefix;  // network byte order
  std::uint32_t mask;    // network byte order
  fixed_text<32> vrf;
  std::uint32_t ip_configured;     // non-zero once an address has been configured
  std::uint64_t vrf_notification;  // registration handle, 0 none
};
struct list_object {
  list_member* members;
};
struct probe_object {
  std::uint32_t operation_id;
  std::uint32_t response_time;  // milliseconds
  std::uint32_t return_code;
};
struct bfd_object {
  std::uint32_t ifhandle;
  std::uint32_t destination;  // network byte order
  std::uint32_t session_id;
  std::uint32_t rate;
  std::uint32_t debounce_count;
  fixed_text<120> interface;
};

// Zero bytes are the empty value of every member, so a change of type starts from zero_object().
union track_object {
  interface_object interface;
  route_object route;
  list_object list;
  probe_object probe;
  bfd_object bfd;

  track_object() noexcept { zero(); }
  void zero() noexcept;
};

// Held by value in `tracks_table`; plain bytes, copied in and freed with its entry. What it points
// to (members, timers) is released by whoever tears the track down.
struct ot_track {
  // Side by side: what a calculation of lists looks at for each member.
  track_name name;
  track_type type = track_type::none;
  std::uint32_t uncalculated = 0;                   // during a calculation: 1 not computed yet
  track_state source_state = track_state::unknown;  // what the object itself last reported
  track_state state = track_state::unknown;         // the published state
  list_progress progress;

  std::uint16_t delay_up = 0;         // seconds before a change to up is published; 0 at once
  std::uint16_t delay_down = 0;       // the same for down and unknown
  std::uint32_t configured_type = 0;  // type number of the last type item applied; 0 none yet
  std::uint32_t threshold_up = 0;
  std::uint32_t threshold_down = 0;
  wtm_leaf* delay_timer = nullptr;         // never null in a live track
  wtm_leaf* poll_timer = nullptr;          // probe tracks only
  std::uint32_t state_change_counter = 0;  // publications, also of an unchanged state
  std::int64_t seconds_last_change = 0;    // wall-clock seconds of the last publication
  track_object object;
};

extern hash_db tracks_table;

// How many tracks can be configured.
inline constexpr std::uint32_t max_tracks = 1500;

// Creates the table. 0 or 12. Once, at start-up.
int tracks_table_create() noexcept;

// The record of the track of that name, or null. The table's; valid until the track is deleted.
ot_track* hash_db_get_track_item(const char* name) noexcept;

}  // namespace ot
