// The configuration of one track as trackctl holds it: the items below the track's path, and the
// ways to make one.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "platform/ledger.h"

namespace ot::trackctl {

struct item_value {
  ledger_kind kind = ledger_kind::u32;
  std::vector<std::byte> bytes;
  bool operator==(const item_value&) const = default;
};

// One item; the path is relative to the track's, for example "delay_up".
struct config_item {
  std::string path;
  item_value value;
};

// A track's items as the ledger has them, by relative path. Empty: the track is not configured.
using track_items = std::map<std::string, item_value, std::less<>>;

item_value u32_value(std::uint32_t number);
item_value text_value(std::string_view text);

// Absolute paths of the configuration.
inline constexpr std::string_view tracks_root = "/cfg/gl/object_tracking/track/";
std::string track_path(std::string_view track);  // ends in '/'

// The items every track can have beside those of its type.
inline constexpr std::string_view existence_item = "a";
inline constexpr std::string_view delay_up_item = "delay_up";
inline constexpr std::string_view delay_down_item = "delay_down";
inline constexpr std::string_view type_prefix = "type/";

}  // namespace ot::trackctl
