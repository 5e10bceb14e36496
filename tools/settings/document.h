// A configuration file as TOML.
#pragma once

#include <toml++/toml.h>

#include <optional>
#include <string_view>
#include <vector>

#include "tools/settings/problems.h"

namespace ot::settings {

// Nothing when the text is no TOML, or more deeply nested than we take: the problem is in `ret`.
std::optional<toml::table> parse_document(std::string_view text, std::vector<problem>* ret);

}  // namespace ot::settings
