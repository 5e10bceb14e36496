// The configuration file: which operations there are. Every error is told with its place, and not
// only the first.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tools/qmond/operation.h"

namespace ot::qmond {

struct problem {
  std::uint32_t line = 0;  // 1 is the first; 0 the file as a whole
  std::uint32_t column = 0;
  std::string text;
};

struct configuration {
  std::vector<operation> operations;  // without those that have errors
  std::vector<problem> problems;      // in the order of their places
};

configuration parse_config(std::string_view text);

// The same for a file; one that cannot be read is a problem of line 0.
configuration read_config(const std::string& path);

// "FILE:LINE:COLUMN: text".
std::string problem_text(const std::string& path, const problem& what);

}  // namespace ot::qmond
