// Text in columns of a terminal: what a letter takes, not how many bytes it has.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace ot::trackctl {

// How many columns the text takes. It is UTF-8; each character counts as one.
std::size_t columns_of(std::string_view text);

// With blanks behind it, or before it, up to that width; longer text stays as it is.
std::string padded(std::string text, std::size_t width);
std::string right_aligned(const std::string& text, std::size_t width);

// The same with two blanks more, which keep the next column apart.
std::string table_cell(std::string text, std::size_t width);

}  // namespace ot::trackctl
