// The order of changes matters, since it is the order in which the service applies them: the
// existence item, what the track follows, then the delays. Deletion runs the other way:
// without its delays a track that is deleted while up is withdrawn at once.
//
// The existence item is never set when it is present: at the limit of 1500 tracks the service
// refuses even that.
#include "tools/trackctl/plan.h"

#include <algorithm>

namespace ot::trackctl {
namespace {

// Collects the differences between a track's present items and the wanted ones.
class difference {
 public:
  difference(const std::string& track, const track_items& present)
      : path_(track_path(track)), present_(present) {}

  // `always`: also when it is so already.
  void want(std::string_view item, const item_value& value, bool always = false) {
    const auto found = present_.find(item);
    if (always || found == present_.end() || found->second != value) {
      changes_.push_back(
          {.path = path_ + std::string(item), .kind = value.kind, .value = value.bytes});
    }
  }
  void remove(std::string_view item) {
    if (present_.contains(item)) {
      changes_.push_back({.path = path_ + std::string(item), .remove = true, .value = {}});
    }
  }
  void want_delay(std::string_view item, std::uint32_t seconds) {
    if (seconds == 0) {
      remove(item);
    } else {
      want(item, u32_value(seconds));
    }
  }
  void want_exists() {
    if (!present_.contains(existence_item)) {
      want(existence_item, u32_value(1));
    }
  }
  commit take() { return std::move(changes_); }

 private:
  std::string path_;
  const track_items& present_;
  commit changes_;
};

bool is_type_item(std::string_view item) {
  return item.starts_with(type_prefix);
}

bool is_wanted(const wanted_type& type, const std::string& item, const item_value* value) {
  return std::any_of(type.items.begin(), type.items.end(), [&](const config_item& wanted) {
    return wanted.path == item && (value == nullptr || wanted.value == *value);
  });
}

// True when the track must go before it can be what is wanted.
bool must_recreate(const track_items& present, const wanted_type& type) {
  const bool has_type = std::any_of(present.begin(), present.end(),
                                    [](const auto& item) { return is_type_item(item.first); });
  if (type.only_from_nothing && !present.empty() && !has_type) {
    return true;
  }
  return std::any_of(present.begin(), present.end(), [&](const auto& item) {
    const auto& [path, value] = item;
    if (!is_type_item(path)) {
      return false;
    }
    return !path.starts_with(type.folder) ||
           (type.recreate_on_change && !is_wanted(type, path, &value));
  });
}

bool is_limits_item(std::string_view item) {
  return item.find("/thld_limits/") != std::string_view::npos;
}

// True when the limits that another item set may be in force, which go only when others are set.
bool has_other_limits(const track_items& present, const wanted_type& type) {
  return std::any_of(present.begin(), present.end(), [&](const auto& item) {
    return is_limits_item(item.first) && !is_wanted(type, item.first, nullptr);
  });
}

commit plan_in_place(const std::string& track, const track_items& present, const wanted_type& type,
                     const wanted_delays& delays) {
  difference changes(track, present);
  for (const auto& [path, value] : present) {
    if (is_type_item(path) && !is_wanted(type, path, nullptr)) {
      changes.remove(path);
    }
  }
  changes.want_exists();
  const bool set_limits = has_other_limits(present, type);
  for (const config_item& item : type.items) {
    changes.want(item.path, item.value, set_limits && is_limits_item(item.path));
  }
  changes.want_delay(delay_up_item, delays.up);
  changes.want_delay(delay_down_item, delays.down);
  return changes.take();
}

// Adds changes as a stage of their own behind those there are.
void add_stage(commit& changes, commit added) {
  const std::uint32_t behind = changes.empty() ? 0 : changes.back().stage + 1;
  for (ledger_proposal& change : added) {
    change.stage += behind;
    changes.push_back(std::move(change));
  }
}

// The end of a track that has an existence.
commit plan_end(const std::string& track, const track_items& present) {
  difference changes(track, present);
  changes.remove(delay_up_item);
  changes.remove(delay_down_item);
  for (const auto& [path, value] : present) {
    if (is_type_item(path)) {
      changes.remove(path);
    }
  }
  changes.remove(existence_item);
  return changes.take();
}

}  // namespace

commit plan_set(const std::string& track, const track_items& present, const wanted_type& type,
                const wanted_delays& delays) {
  if (!must_recreate(present, type)) {
    return plan_in_place(track, present, type, delays);
  }
  commit changes = plan_delete(track, present);
  add_stage(changes, plan_in_place(track, {}, type, delays));
  return changes;
}

commit plan_delay(const std::string& track, const track_items& present,
                  std::optional<std::uint32_t> up, std::optional<std::uint32_t> down) {
  difference changes(track, present);
  if (up) {
    changes.want_delay(delay_up_item, *up);
  }
  if (down) {
    changes.want_delay(delay_down_item, *down);
  }
  return changes.take();
}

commit plan_delete(const std::string& track, const track_items& present) {
  if (present.empty() || present.contains(existence_item)) {
    return plan_end(track, present);
  }
  // Another client made it without: its end is that of its existence all the same.
  track_items existing = present;
  existing.emplace(existence_item, u32_value(1));
  difference changes(track, present);
  changes.want_exists();
  commit all = changes.take();
  add_stage(all, plan_end(track, existing));
  return all;
}

}  // namespace ot::trackctl
