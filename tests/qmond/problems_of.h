// What is wrong with a configuration's text, as the operator reads it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tools/qmond/config.h"

namespace ot::qmond {

inline std::vector<std::string> problems_of(std::string_view text) {
  std::vector<std::string> texts;
  for (const problem& what : parse_config(text).problems) {
    texts.push_back(problem_text("f", what));
  }
  return texts;
}

}  // namespace ot::qmond
