// What a list is made of. Every refusal names the word that is wrong and what would be right.
#include "tools/trackctl/list_items.h"

#include <array>
#include <cstdio>
#include <set>

#include "tools/trackctl/failure.h"
#include "tools/trackctl/names.h"

namespace ot::trackctl {
namespace {

constexpr std::string_view negation = "not";

void check_members(const std::vector<list_member_word>& members) {
  std::set<std::string_view> names;
  for (const list_member_word& member : members) {
    check_track_name(member.name);
    if (!names.insert(member.name).second) {
      throw failure(exit_usage, "member \"" + member.name + "\" is named twice");
    }
  }
}

// Splits "MEMBER=WEIGHT" at the sign; without one, `ret_weight` stays as it is.
std::string split_weight(const std::string& word, std::string& ret_weight) {
  const std::size_t sign = word.find('=');
  if (sign != std::string::npos) {
    ret_weight = word.substr(sign + 1);
  }
  return word.substr(0, sign);
}

std::uint32_t parse_weight(const std::string& member, const std::string& text) {
  return parse_number("the weight of member \"" + member + "\",", text, {});
}

std::string limits_path(std::uint32_t up) {
  std::array<char, 16> number{};
  std::snprintf(number.data(), number.size(), "0x%x", up);
  return std::string("thld_limits/val_up/") + number.data() + "/val_dn";
}

}  // namespace

std::vector<list_member_word> read_boolean_members(const std::vector<std::string>& words) {
  std::vector<list_member_word> members;
  std::uint32_t negated = 0;
  for (const std::string& word : words) {
    if (negated == 0 && word == negation) {
      negated = 1;
      continue;
    }
    members.push_back({word, negated});
    negated = 0;
  }
  if (negated != 0) {
    throw failure(exit_usage, "the last \"not\" needs a MEMBER behind it");
  }
  check_members(members);
  return members;
}

std::vector<list_member_word> read_weighted_members(const std::vector<std::string>& words) {
  std::vector<list_member_word> members;
  for (const std::string& word : words) {
    if (word.find('=') == std::string::npos) {
      throw failure(exit_usage, "member \"" + word + "\" has no weight; write " + word + "=WEIGHT");
    }
    std::string weight;
    const std::string name = split_weight(word, weight);
    members.push_back({name, parse_weight(name, weight)});
  }
  check_members(members);
  return members;
}

std::vector<list_member_word> read_percentage_members(const std::vector<std::string>& words,
                                                      std::vector<std::string>& ret_weighted) {
  std::vector<list_member_word> members;
  for (const std::string& word : words) {
    if (word == negation) {
      throw failure(exit_usage,
                    "there is no \"not\" in a percentage list; make a list of its own of the "
                    "negated member: trackctl set NAME and not MEMBER");
    }
    std::string weight;
    members.push_back({split_weight(word, weight), 1});
    if (word.find('=') != std::string::npos) {
      parse_weight(members.back().name, weight);
      ret_weighted.push_back(members.back().name);
    }
  }
  check_members(members);
  return members;
}

list_limits read_limits(const std::string& up, const std::string& down) {
  const list_limits limits{parse_number("--up", up, {.least = 1}),
                           parse_number("--down", down, {})};
  if (limits.up <= limits.down) {
    throw failure(exit_usage, "--up " + up + " is not greater than --down " + down +
                                  "; the list is up from the down limit to the up limit");
  }
  return limits;
}

std::vector<config_item> list_items(std::string_view folder, const list_limits* limits,
                                    const std::vector<list_member_word>& members) {
  const std::string base(folder);
  std::vector<config_item> items{{base + "a", u32_value(1)}};
  if (limits != nullptr) {
    items.push_back({base + limits_path(limits->up), u32_value(limits->down)});
  }
  for (auto member = members.rbegin(); member != members.rend(); ++member) {
    items.push_back({base + "object/" + member->name + "/a", u32_value(member->value)});
  }
  return items;
}

}  // namespace ot::trackctl
