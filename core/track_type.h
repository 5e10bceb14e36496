// What everybody says of tracks: their names, types and states. The record itself is core/track.h.
#pragma once

#include <cstdint>

#include "platform/fixed_text.h"

namespace ot {

using track_name = fixed_text<40>;

// Track types; the same numbers stand in configuration paths and operational records.
enum class track_type : std::uint32_t {
  interface = 1,
  route = 2,
  boolean_and = 3,
  boolean_or = 4,
  probe = 5,
  none = 6,  // nothing configured yet
  threshold_weight = 7,
  threshold_percentage = 8,
  bfd = 9,
};

// True for the four kinds of list tracks.
constexpr bool is_list_type(track_type type) noexcept {
  return type == track_type::boolean_and || type == track_type::boolean_or ||
         type == track_type::threshold_weight || type == track_type::threshold_percentage;
}

enum class track_state : std::uint32_t { unknown = 0, up = 1, down = 2 };

// "Unknown", "Track_Up", "Track_Down"; an empty text for anything else.
const char* track_state_text(track_state state) noexcept;

}  // namespace ot
