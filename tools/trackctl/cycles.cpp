// The search goes from the track outwards, so it reads only the lists that the track stands on, and
// finds a shortest cycle.
#include "tools/trackctl/cycles.h"

#include <algorithm>
#include <deque>
#include <iostream>
#include <map>

#include "tools/trackctl/command.h"

namespace ot::trackctl {
namespace {

constexpr std::string_view list_folder = "type/list/";

// The member that an item of a list names, "type/list/0x3/object/NAME/a"; empty for other items.
std::string member_of_item(std::string_view item) {
  constexpr std::string_view folder = "/object/";
  constexpr std::string_view end = "/a";
  const std::size_t at = item.find(folder);
  if (!item.starts_with(list_folder) || at == std::string_view::npos || !item.ends_with(end)) {
    return {};
  }
  item.remove_prefix(at + folder.size());
  return std::string(item.substr(0, item.size() - std::min(item.size(), end.size())));
}

std::vector<std::string> read_members(const std::string& track) {
  return list_members(read_track(track));
}

}  // namespace

std::vector<std::string> list_members(const track_items& items) {
  std::vector<std::string> members;
  for (const auto& [item, value] : items) {
    if (std::string member = member_of_item(item); !member.empty()) {
      members.push_back(std::move(member));
    }
  }
  return members;
}

std::string cycle_warning(const std::vector<std::string>& cycle) {
  std::string way;
  for (const std::string& list : cycle) {
    way += (way.empty() ? "" : " -> ") + list;
  }
  return "warning: these lists contain each other and wait for each other: " + way +
         "; they keep the states they have until one of them is changed";
}

std::vector<std::string> find_cycle(const std::string& track, const members_reader& members_of) {
  std::map<std::string, std::string> found_from;  // each track by the list it was found in
  std::deque<std::string> open{track};
  while (!open.empty()) {
    const std::string list = std::move(open.front());
    open.pop_front();
    for (const std::string& member : members_of(list)) {
      if (!found_from.emplace(member, list).second) {
        continue;
      }
      if (member != track) {
        open.push_back(member);
        continue;
      }
      std::vector<std::string> cycle{track};
      do {
        cycle.push_back(found_from[cycle.back()]);
      } while (cycle.back() != track);
      std::reverse(cycle.begin(), cycle.end());
      return cycle;
    }
  }
  return {};
}

void warn_of_cycle(const std::string& track) {
  try {
    const std::vector<std::string> cycle = find_cycle(track, read_members);
    if (cycle.empty()) {
      return;
    }
    std::cerr << "trackctl: " << cycle_warning(cycle) << '\n';
  } catch (const failure&) {
    // What was asked for is done.
  }
}

}  // namespace ot::trackctl
