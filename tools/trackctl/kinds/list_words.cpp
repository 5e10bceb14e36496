// From the items of a list track to its members and limits in words, the reverse of lists.cpp.
#include <algorithm>
#include <cstdlib>

#include "tools/trackctl/kinds/lists.h"

namespace ot::trackctl {
namespace {

// The members that the items of a list name, in the order wanted, each with its value.
std::vector<list_member_word> members_of(const track_items& items, std::string_view folder,
                                         const member_order& order) {
  const std::string prefix = std::string(folder) + "object/";
  std::vector<std::string> names;
  for (auto item = items.lower_bound(prefix);
       item != items.end() && item->first.starts_with(prefix); ++item) {
    names.push_back(item->first.substr(prefix.size(), item->first.rfind('/') - prefix.size()));
  }
  if (order) {
    order(names);
  }
  std::vector<list_member_word> members;
  members.reserve(names.size());
  for (const std::string& name : names) {
    members.push_back({name, item_number(items, prefix + name + "/a")});
  }
  return members;
}

// What has to stand before members one of which looks like an option.
std::string end_of_options(const std::vector<list_member_word>& members) {
  return std::any_of(members.begin(), members.end(),
                     [](const auto& member) { return member.name.starts_with('-'); })
             ? " --"
             : "";
}

std::string write_limits(const track_items& items, std::string_view folder) {
  const std::string prefix = std::string(folder) + "thld_limits/val_up/";
  const auto item = items.lower_bound(prefix);
  if (item == items.end() || !item->first.starts_with(prefix)) {
    return {};
  }
  const unsigned long up = std::strtoul(item->first.c_str() + prefix.size(), nullptr, 16);
  return "--up " + std::to_string(up) + " --down " +
         std::to_string(item_number(items, item->first));
}

}  // namespace

std::string write_boolean(const track_items& items, std::string_view folder,
                          const member_order& order) {
  const std::vector<list_member_word> members = members_of(items, folder, order);
  std::string text = end_of_options(members);
  for (const list_member_word& member : members) {
    text += std::string(member.value == 0 ? " " : " not ") + member.name;
  }
  return text.empty() ? text : text.substr(1);
}

std::string write_weights(const track_items& items, std::string_view folder,
                          const member_order& order) {
  const std::vector<list_member_word> members = members_of(items, folder, order);
  std::string text = write_limits(items, folder) + end_of_options(members);
  for (const list_member_word& member : members) {
    text += ' ' + member.name + '=' + std::to_string(member.value);
  }
  return text;
}

std::string write_shares(const track_items& items, std::string_view folder,
                         const member_order& order) {
  const std::vector<list_member_word> members = members_of(items, folder, order);
  std::string text = write_limits(items, folder) + end_of_options(members);
  for (const list_member_word& member : members) {
    text += ' ' + member.name;
  }
  return text;
}

}  // namespace ot::trackctl
