// From what a track is to what it shall be: the commit that makes the difference and touches
// nothing else. Pure; the ledger is read before and written after.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/trackctl/configuration.h"

namespace ot::trackctl {

// The type part of a track: what it follows.
struct wanted_type {
  std::string folder;              // for example "type/interface/0x1/"
  std::vector<config_item> items;  // all below `folder`, in the order in which they are to be set
  // The service takes another object only after the track was deleted: any difference in the items
  // that are present makes two stages.
  bool recreate_on_change = false;
  // The service makes such a track only where there is none: also a track without a type goes
  // first.
  bool only_from_nothing = false;
};

struct wanted_delays {
  std::uint32_t up = 0;  // seconds; 0 = no item
  std::uint32_t down = 0;
};

// The commit after which `track` is exactly what is wanted; empty when it is that already. Of two
// stages when the type changes: delete, then create.
commit plan_set(const std::string& track, const track_items& present, const wanted_type& type,
                const wanted_delays& delays);

// The changes of the delays given; a delay not given stays as it is. Empty when nothing changes.
commit plan_delay(const std::string& track, const track_items& present,
                  std::optional<std::uint32_t> up, std::optional<std::uint32_t> down);

// Removes all of the track's items.
commit plan_delete(const std::string& track, const track_items& present);

}  // namespace ot::trackctl
