// The keys that all policies have, and what must be there. The keys of one kind are in its row.
#include "tools/trackpolicy/policy_keys.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <set>
#include <string_view>

#include "tools/settings/kinds.h"
#include "tools/trackpolicy/kinds/kinds.h"
#include "tools/trackpolicy/state_filter.h"

namespace ot::trackpolicy {
namespace {

using settings::problem_list;
using settings::value_error;

constexpr std::size_t name_max = 31;  // what events carry of a track's name

std::string track_value(const toml::node& node) {
  std::string name = settings::text_value(node);
  const bool plain = std::all_of(name.begin(), name.end(), [](unsigned char c) {
    return std::isalnum(c) != 0 ||
           std::string_view{"_.:-"}.find(static_cast<char>(c)) != std::string_view::npos;
  });
  if (!plain || name.size() > name_max) {
    throw value_error("must be 1 to 31 of A-Z a-z 0-9 _ . : -");
  }
  return name;
}

// What is remembered of a policy is a file of its name.
std::string name_value(const toml::node& node) {
  std::string name = track_value(node);
  if (name.front() == '.') {
    throw value_error("must not begin with a dot");
  }
  return name;
}

constexpr std::uint32_t time_max = 24 * 3600 * 1000;
constexpr std::uint32_t half_life_min = 100;
constexpr std::uint32_t penalty_max = 1'000'000;

constexpr std::array general_keys{
    key_row{"name", settings::take_value<&policy::name, name_value>, settings::key_required},
    key_row{"track", settings::take_value<&policy::track, track_value>, settings::key_required},
    key_row{"kind", [](const toml::node&, policy&) {}},  // read before
    key_row{"hold", settings::take_value<&policy::hold_ms, settings::duration_value, 0, time_max>,
            settings::key_common},
    key_row{"half_life",
            settings::take_value<&policy::half_life_ms, settings::duration_value, half_life_min,
                                 time_max>,
            settings::key_common},
    key_row{"suppress",
            settings::take_value<&policy::suppress, settings::number_value, 1, penalty_max>,
            settings::key_common},
    key_row{"reuse", settings::take_value<&policy::reuse, settings::number_value, 1, penalty_max>,
            settings::key_common},
};

const key_row* find_in(std::span<const key_row> keys, std::string_view name) noexcept {
  const auto row = std::find_if(keys.begin(), keys.end(),
                                [name](const key_row& key) { return key.name == name; });
  return row == keys.end() ? nullptr : &*row;
}

// The key of a policy of that kind, or of whatever kind has it where the kind is none; else null.
const key_row* find_key(const kind* of, std::string_view name) noexcept {
  const key_row* found = find_in(general_keys, name);
  for (const kind& each : all_kinds()) {
    if (found == nullptr && (of == nullptr || of == &each)) {
      found = find_in(each.keys, name);
    }
  }
  return found;
}

// Null, with the problem reported, when such a policy has no such key.
const key_row* key_for(const kind* of, const toml::key& key, problem_list& problems) {
  const key_row* const found = find_key(of, key.str());
  if (found == nullptr) {
    const std::string quoted = '"' + std::string(key.str()) + '"';
    problems.add(key.source(),
                 find_key(nullptr, key.str()) == nullptr
                     ? "there is no key " + quoted
                     : "a policy of kind " + std::string(of->word) + " has no " + quoted);
  }
  return found;
}

void check_required(const toml::table& table, std::span<const key_row> keys,
                    problem_list& problems) {
  for (const key_row& row : keys) {
    if ((row.use & settings::key_required) != 0 && !table.contains(row.name)) {
      problems.add(table.source(), "the policy has no \"" + std::string(row.name) + "\"");
    }
  }
}

// Where the limits can never be reached, or left.
void check_damping(const toml::table& table, const policy& of, problem_list& problems) {
  const auto place_of = [&table](const char* key) {
    const toml::node* const node = table.get(key);
    return node == nullptr ? table.source() : node->source();
  };
  for (const char* const key : {"suppress", "reuse"}) {
    if (of.half_life_ms == 0 && table.contains(key)) {
      problems.add(place_of(key), std::string(key) +
                                      ": counts with \"half_life\" only, which the "
                                      "policy does not have");
    }
  }
  if (of.reuse >= of.suppress) {
    problems.add(place_of("reuse"),
                 "reuse: must be less than \"suppress\", " + std::to_string(of.suppress));
  } else if (of.suppress > std::uint64_t{of.reuse} * penalty_ceiling) {
    problems.add(place_of("suppress"), "suppress: must be at most " +
                                           std::to_string(penalty_ceiling) +
                                           " times \"reuse\", as far as a penalty grows");
  }
}

}  // namespace

void read_common_keys(const toml::table& table, policy* ret, problem_list& problems) {
  for (const auto& [key, node] : table) {
    const key_row* const row = find_key(nullptr, key.str());
    if (row == nullptr || (row->use & settings::key_common) == 0) {
      problems.add(key.source(), "\"" + std::string(key.str()) + "\" cannot stand in [defaults]");
    } else {
      (void)settings::take_key(*row, node, *ret, problems);
    }
  }
}

bool read_policy(const toml::table& table, policy* ret, problem_list& problems) {
  const kind* const of = settings::read_kind(all_kinds(), table, "the policy", problems);
  check_required(table, general_keys, problems);
  if (of != nullptr) {
    ret->kind = of->id;
    check_required(table, of->keys, problems);
  }
  bool named = false;
  const std::size_t before = problems.count();
  for (const auto& [key, node] : table) {
    const key_row* const row = key_for(of, key, problems);
    const bool good = row != nullptr && settings::take_key(*row, node, *ret, problems);
    named = named || (good && row->name == "name");
  }
  if (problems.count() == before) {
    check_damping(table, *ret, problems);
  }
  if (of != nullptr && of->check != nullptr && problems.count() == before) {
    of->check(table, *ret, problems);
  }
  return named;
}

}  // namespace ot::trackpolicy
