// Problems by their place.
#include "tools/settings/problems.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace ot::settings {

std::string problem_text(const std::string& path, const problem& what) {
  if (what.line == 0) {
    return path + ": " + what.text;
  }
  return path + ':' + std::to_string(what.line) + ':' + std::to_string(what.column) + ": " +
         what.text;
}

void problem_list::add(const toml::source_region& place, std::string text) {
  found_.push_back(
      {.line = place.begin.line, .column = place.begin.column, .text = std::move(text)});
}

std::vector<problem> problem_list::sorted() const {
  std::vector<problem> by_place = found_;
  std::stable_sort(by_place.begin(), by_place.end(), [](const problem& a, const problem& b) {
    return std::tie(a.line, a.column) < std::tie(b.line, b.column);
  });
  return by_place;
}

}  // namespace ot::settings
