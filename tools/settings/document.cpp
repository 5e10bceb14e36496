// What is too deep is refused before the library sees it, which follows it by recursion.
#include "tools/settings/document.h"

#include <string>
#include <utility>

#include "tools/settings/nesting.h"

namespace ot::settings {

std::optional<toml::table> parse_document(std::string_view text, std::vector<problem>* ret) {
  if (std::optional<problem> deep = find_deep_key(text)) {
    ret->push_back(std::move(*deep));
    return {};
  }
  try {
    return toml::parse(text);
  } catch (const toml::parse_error& error) {
    problem_list problems;
    problems.add(error.source(),
                 std::string(error.description()) + "; the rest of the file was not looked at");
    *ret = problems.sorted();
    return {};
  }
}

}  // namespace ot::settings
