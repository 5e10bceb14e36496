// The explanation in words, from its tree.
#pragma once

#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <string>

namespace ot::trackctl::explain {

// How a time of the tree, which is local, is written: for people without its offset.
using time_form = std::function<std::string(const std::string& rfc3339)>;
std::string local_time(const std::string& rfc3339);

std::string text_of(const nlohmann::ordered_json& tree, const time_form& form = local_time);

}  // namespace ot::trackctl::explain
