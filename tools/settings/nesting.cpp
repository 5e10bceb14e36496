// A scanner that knows of TOML only what hides dots: comments and the four sorts of texts. What it
// counts is dots between two signs that end a key.
#include "tools/settings/nesting.h"

#include <array>
#include <string>

namespace ot::settings {
namespace {

// What goes on until its end; the longer begins go before those that they begin with.
struct hidden_row {
  std::string_view begin;
  std::string_view end;
  bool escapes;       // a backslash hides the next sign
  bool ends_at_line;  // whether or not its end has come
};
constexpr std::array hidden_rows{
    hidden_row{"\"\"\"", "\"\"\"", true, false}, hidden_row{"'''", "'''", false, false},
    hidden_row{"\"", "\"", true, true},          hidden_row{"'", "'", false, true},
    hidden_row{"#", "\n", false, true},
};

const hidden_row* hidden_at(std::string_view rest) noexcept {
  for (const hidden_row& row : hidden_rows) {
    if (rest.starts_with(row.begin)) {
      return &row;
    }
  }
  return nullptr;
}

// How many bytes of `rest`, which begins with row.begin, it hides.
std::size_t hidden_size(std::string_view rest, const hidden_row& row) noexcept {
  std::size_t at = row.begin.size();
  while (at < rest.size()) {
    if (row.ends_at_line && rest[at] == '\n') {
      return at;
    }
    if (rest.substr(at).starts_with(row.end)) {
      at += row.end.size();
      // A text of several lines may end with up to two quotes of its own.
      for (int i = 0; i < 2 && !row.ends_at_line && at < rest.size() && rest[at] == row.end[0];
           ++i) {
        ++at;
      }
      return at;
    }
    at += row.escapes && rest[at] == '\\' ? 2 : 1;
  }
  return rest.size();
}

// Line and column as the library counts them: a character is one column.
problem problem_at(std::string_view text, std::size_t at) {
  problem found{.line = 1, .column = 1, .text = {}};
  for (const char c : text.substr(0, at)) {
    if (c == '\n') {
      ++found.line;
      found.column = 1;
    } else if ((static_cast<unsigned char>(c) & 0xc0) != 0x80) {
      ++found.column;
    }
  }
  found.text = "a key has more than " + std::to_string(key_parts_max) + " parts";
  return found;
}

}  // namespace

std::optional<problem> find_deep_key(std::string_view text) {
  constexpr std::string_view key_ends = "\n=[]{},";
  std::size_t dots = 0;
  std::size_t at = 0;
  while (at < text.size()) {
    if (const hidden_row* const row = hidden_at(text.substr(at))) {
      at += hidden_size(text.substr(at), *row);
      continue;
    }
    if (key_ends.find(text[at]) != std::string_view::npos) {
      dots = 0;
    } else if (text[at] == '.' && ++dots == key_parts_max) {
      return problem_at(text, at);
    }
    ++at;
  }
  return {};
}

}  // namespace ot::settings
