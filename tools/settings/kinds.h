// The kinds of what a table of a configuration file configures: rows with a word and an id.
#pragma once

#include <toml++/toml.h>

#include <algorithm>
#include <functional>
#include <span>
#include <string>
#include <string_view>

#include "tools/settings/problems.h"

namespace ot::settings {

template <class Kind>
using kind_list = std::span<const std::reference_wrapper<const Kind>>;

// The row of an id, which there must be.
template <class Kind, class Id>
const Kind& kind_of(kind_list<Kind> all, Id id) noexcept {
  return *std::find_if(all.begin(), all.end(), [id](const Kind& row) { return row.id == id; });
}

// "command, file, ..."
template <class Kind>
std::string kind_words(kind_list<Kind> all) {
  std::string words;
  for (const Kind& row : all) {
    words.append(words.empty() ? "" : ", ").append(row.word);
  }
  return words;
}

// The kind that the table's "kind" names; null, with the problem reported, when it names none.
// `whose`: for example "the operation".
template <class Kind>
const Kind* read_kind(kind_list<Kind> all, const toml::table& table, std::string_view whose,
                      problem_list& problems) {
  const toml::node* const node = table.get("kind");
  if (node == nullptr) {
    problems.add(table.source(),
                 std::string(whose) + " has no \"kind\"; there are " + kind_words(all));
    return nullptr;
  }
  const auto* const word = node->as_string();
  const auto found = std::find_if(all.begin(), all.end(), [word](const Kind& row) {
    return word != nullptr && row.word == word->get();
  });
  if (found == all.end()) {
    problems.add(node->source(), "kind: must be one of " + kind_words(all));
    return nullptr;
  }
  return &found->get();
}

}  // namespace ot::settings
