// The table of tracks and what belongs to the record alone.

#include "core/track.h"

#include <array>
#include <cstring>
#include <type_traits>

#include "core/debug.h"

namespace ot {

static_assert(std::is_trivially_copyable_v<ot_track>, "the table copies records as bytes");

hash_db tracks_table;

namespace {

// A prime above the track limit: chains stay short when the table is full.
constexpr std::uint32_t tracks_buckets = 2039;

constexpr std::array<const char*, 3> state_texts = {"Unknown", "Track_Up", "Track_Down"};

}  // namespace

const char* track_state_text(track_state state) noexcept {
  const auto index = static_cast<std::size_t>(state);
  return index < state_texts.size() ? state_texts[index] : "";
}

void track_object::zero() noexcept {
  std::memset(static_cast<void*>(this), 0, sizeof *this);
}

int tracks_table_create() noexcept {
  return hash_db_create_str(tracks_table, tracks_buckets, track_name::capacity, sizeof(ot_track));
}

ot_track* hash_db_get_track_item(const char* name) noexcept {
  OT_TRACE_ENTRY();
  return hash_db_find_data<ot_track>(tracks_table, name);
}

}  // namespace ot
