// "set NAME and|or|weight|percentage ...": the track follows other tracks, which need not exist
// yet. The four kinds differ in how a member is written and in whether there are limits. Every
// refusal names the word that is wrong and what would be right.
#include "tools/trackctl/kinds/lists.h"

#include <array>
#include <cstdio>
#include <memory>
#include <set>

#include "tools/trackctl/command.h"
#include "tools/trackctl/kinds/kinds.h"
#include "tools/trackctl/names.h"

namespace ot::trackctl {
namespace {

constexpr std::string_view negation = "not";

void check_members(const std::vector<list_member_word>& members) {
  std::set<std::string_view> names;
  for (const list_member_word& member : members) {
    check_new_track_name(member.name);
    if (!names.insert(member.name).second) {
      throw failure(exit_usage, "member \"" + member.name + "\" is named twice");
    }
  }
}

void check_not_negation(const std::string& word, const std::string& kind) {
  if (word == negation) {
    throw failure(exit_usage, "there is no \"not\" in a " + kind +
                                  " list; make a list of its own of the negated member: trackctl "
                                  "set NAME and not MEMBER");
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

namespace {

[[noreturn]] void refuse_without_weight(const std::string& member) {
  throw failure(exit_usage, "member \"" + member + "\" has no weight; write " + member + "=WEIGHT");
}

}  // namespace

std::vector<list_member_word> read_weighted_members(const std::vector<std::string>& words) {
  std::vector<list_member_word> members;
  for (const std::string& word : words) {
    check_not_negation(word, "weight");
    if (word.find('=') == std::string::npos) {
      refuse_without_weight(word);
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
    check_not_negation(word, "percentage");
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

namespace {

using words = std::vector<std::string>;

std::shared_ptr<words> define_members(command_line& app, const char* description) {
  auto members = std::make_shared<words>();
  app.add_option("MEMBER", *members, description).required();
  return members;
}

items_reader define_boolean(command_line& app, const track_kind& kind) {
  const auto members =
      define_members(app, "names of tracks; a \"not\" before one takes it the other way round");
  return [members, folder = kind.folder] {
    return list_items(folder, nullptr, read_boolean_members(*members));
  };
}

struct limit_words {
  std::string up;
  std::string down;
};

items_reader define_threshold(command_line& app, const track_kind& kind, const char* description,
                              std::vector<list_member_word> (*read_members)(const words&)) {
  const auto limits = std::make_shared<limit_words>();
  app.add_option("--up", limits->up, "the list is down above this value").required();
  app.add_option("--down", limits->down, "the list is down below this value").required();
  const auto members = define_members(app, description);
  return [=, folder = kind.folder] {
    const list_limits parsed = read_limits(limits->up, limits->down);
    return list_items(folder, &parsed, read_members(*members));
  };
}

std::vector<list_member_word> read_shares(const words& given) {
  words weighted;
  return read_percentage_members(given, weighted);
}

std::vector<std::string> weights_without_effect(const command_line& app) {
  words weighted;
  read_percentage_members(app.values("MEMBER"), weighted);
  std::vector<std::string> notes;
  for (const std::string& name : weighted) {
    notes.push_back("the weight of member \"" + name +
                    "\" counts as 1, as every member's of a percentage list does");
  }
  return notes;
}

}  // namespace

constinit const track_kind and_kind{
    .word = "and",
    .type = track_type::boolean_and,
    .folder = "type/list/0x3/",
    .summary = "other tracks, up when all of them are",
    .arguments = "[not] MEMBER ...",
    .example = "site and uplink not maintenance --delay-up 5",
    .define = [](command_line& app) { return define_boolean(app, and_kind); },
    .write = write_boolean};

constinit const track_kind or_kind{
    .word = "or",
    .type = track_type::boolean_or,
    .folder = "type/list/0x4/",
    .summary = "other tracks, up when one of them is",
    .arguments = "[not] MEMBER ...",
    .example = "anyway or uplink backup",
    .define = [](command_line& app) { return define_boolean(app, or_kind); },
    .write = write_boolean};

constinit const track_kind weight_kind{
    .word = "weight",
    .type = track_type::threshold_weight,
    .folder = "type/list/0x7/",
    .summary =
        "the sum of weights of the tracks that are up, itself up from the down limit to the "
        "up limit",
    .arguments = "--up N --down N MEMBER=WEIGHT ...",
    .example = "capacity weight --up 100 --down 30 fibre=70 dsl=20 radio=10",
    .define =
        [](command_line& app) {
          return define_threshold(app, weight_kind, "names of tracks, each with its weight",
                                  read_weighted_members);
        },
    .write = write_weights};

constinit const track_kind percentage_kind{
    .word = "percentage",
    .type = track_type::threshold_percentage,
    .folder = "type/list/0x8/",
    .summary =
        "the percentage of tracks that are up, itself up from the down limit to the up "
        "limit",
    .arguments = "--up N --down N MEMBER ...",
    .example = "most percentage --up 100 --down 51 dc1 dc2 dc3",
    .define =
        [](command_line& app) {
          return define_threshold(app, percentage_kind, "names of tracks", read_shares);
        },
    .write = write_shares,
    .notes = weights_without_effect};

}  // namespace ot::trackctl
