#include "tests/unit/what_if/random_site.h"

#include <algorithm>
#include <cstdio>
#include <set>

#include "platform/memory/controls.h"

namespace ot::test {
namespace {

constexpr std::uint32_t names_most = 6;

std::string limits_item(std::uint32_t up) {
  char text[64];
  std::snprintf(text, sizeof text, "thld_limits/val_up/0x%x/val_dn", up);
  return text;
}

}  // namespace

std::string random_site::member_name() {
  const char* const kind = below(2) == 0 ? "f" : "l";
  return kind + std::to_string(below(names_most));  // the last of each is not there most often
}

void random_site::add_delays(const std::string& name, std::vector<ledger_proposal>& items) {
  for (const char* delay : {"delay_up", "delay_down"}) {
    if (below(3) == 0) {
      items.push_back(set_number(track_path(name, delay), 1 + below(3)));
    }
  }
}

std::vector<ledger_proposal> random_site::make_list(const std::string& name) {
  constexpr const char* folders[] = {"type/list/0x3/", "type/list/0x4/", "type/list/0x7/",
                                     "type/list/0x8/"};
  const std::uint32_t kind = below(4);
  const std::string folder = folders[kind];
  std::vector<ledger_proposal> items{set_number(track_path(name, "a"), 1),
                                     set_number(track_path(name, folder + "a"), 1)};
  if (kind >= 2) {
    const std::uint32_t up = 1 + below(100);
    items.push_back(set_number(track_path(name, folder + limits_item(up)), below(up)));
  }
  std::set<std::string> members;
  for (std::uint32_t count = below(5); count > 0; --count) {
    const std::string member = member_name();
    if (member != name && members.insert(member).second) {
      std::string item = folder + "object/";
      item.append(member).append("/a");
      items.push_back(set_number(track_path(name, item), kind < 2 ? below(2) : below(60)));
    }
  }
  add_delays(name, items);
  return items;
}

std::vector<ledger_proposal> random_site::make_track(const std::string& name) {
  if (name.front() == 'l') {
    return make_list(name);
  }
  followers_.push_back(name);
  std::vector<ledger_proposal> items = interface_track(name, interface_of(name));
  add_delays(name, items);
  return items;
}

std::vector<ledger_proposal> random_site::make_configuration() {
  std::vector<ledger_proposal> items;
  std::uint32_t stage = 0;
  for (const char* kind : {"f", "l"}) {
    for (std::uint32_t number = below(names_most) + 1; number-- > 0; ++stage) {
      for (ledger_proposal& item : make_track(kind + std::to_string(number))) {
        item.stage = stage;
        items.push_back(std::move(item));
      }
    }
  }
  return items;
}

void random_site::bring(const std::string& interface, bool up) {
  if (std::find(interfaces_.begin(), interfaces_.end(), interface) == interfaces_.end()) {
    interfaces_.push_back(interface);
    field::interface_added(interface, up);
  } else if (up) {
    field::link_up(interface);
  } else {
    field::link_down(interface);
  }
}

void random_site::flap() {
  const std::string interface = "eth" + std::to_string(below(names_most));
  bring(interface, below(2) == 0);
}

}  // namespace ot::test
