// Keys of a table in a configuration file, as rows: what the key is called, how its value gets into
// its place in a `T`, and where it may stand.
#pragma once

#include <toml++/toml.h>

#include <string>
#include <string_view>

#include "tools/settings/problems.h"
#include "tools/settings/values.h"

namespace ot::settings {

inline constexpr unsigned key_required = 1;
inline constexpr unsigned key_common = 2;    // may stand in [defaults]
inline constexpr unsigned key_use_next = 4;  // the first one that is free for who has more to say

template <class T>
struct key_row {
  std::string_view name;
  // Puts the value into its place. Throws value_error.
  void (*take)(const toml::node& node, T& to);
  unsigned use = 0;
};

template <class Owner, class Field>
Owner owner_of(Field Owner::*field);

// A row's `take` for a field that is read by one function of values.h, within bounds if it has
// them.
template <auto field, auto read, auto... bounds>
void take_value(const toml::node& node, decltype(owner_of(field))& to) {
  to.*field = read(node, bounds...);
}

// False when the value is no good, which is reported.
template <class T>
bool take_key(const key_row<T>& row, const toml::node& node, T& to, problem_list& problems) {
  try {
    row.take(node, to);
    return true;
  } catch (const value_error& error) {
    problems.add(node.source(), std::string(row.name) + ": " + error.what());
    return false;
  }
}

}  // namespace ot::settings
