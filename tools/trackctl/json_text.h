// JSON as every command prints it. Names that other programs have given tracks may be no UTF-8,
// which JSON has to be: what is none stands as U+FFFD.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace ot::trackctl {

// Over several lines, and the last one's end.
std::string json_text(const nlohmann::ordered_json& value);

// On one line, without its end.
std::string json_line(const nlohmann::ordered_json& value);

}  // namespace ot::trackctl
