// The policies' files: *.toml in a folder, each with [defaults] of its own and any number of
// [[policy]]. Every error is reported with its place, and not only the first.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tools/trackpolicy/policy.h"

namespace ot::trackpolicy {

inline constexpr std::size_t policies_max = 4096;

struct configuration {
  std::vector<policy> policies;       // in the order of the files; without those that have errors
  std::vector<std::string> problems;  // "FILE:LINE:COLUMN: text"
};

// `path` is what problems are told of.
configuration parse_policies(const std::string& path, std::string_view text);

// A file, or all *.toml of a folder, by name. What others than root and this process's user may
// have written is a problem, and so is a symbolic link.
configuration read_policies(const std::string& path);

}  // namespace ot::trackpolicy
