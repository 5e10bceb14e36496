#include "tools/trackctl/columns.h"

#include <algorithm>
#include <utility>

namespace ot::trackctl {
namespace {

std::size_t missing(const std::string& text, std::size_t width) {
  return width - std::min(width, columns_of(text));
}

}  // namespace

std::size_t columns_of(std::string_view text) {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xc0) != 0x80; }));
}

std::string padded(std::string text, std::size_t width) {
  text.append(missing(text, width), ' ');
  return text;
}

std::string right_aligned(const std::string& text, std::size_t width) {
  return std::string(missing(text, width), ' ') + text;
}

std::string table_cell(std::string text, std::size_t width) {
  return padded(std::move(text), width) + "  ";
}

}  // namespace ot::trackctl
