// Keys with very many parts ("a.a.a.a..."). Each part is a table in a table to the TOML library,
// which follows them by recursion when it takes them apart again: enough of them end the process.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include "tools/settings/problems.h"

namespace ot::settings {

// Ours have one.
inline constexpr std::size_t key_parts_max = 8;

// The first key of a TOML text that has more parts; looks no further than the first thing that is
// no TOML, which the library reports.
std::optional<problem> find_deep_key(std::string_view text);

}  // namespace ot::settings
