// What standard output is, and text made to fit it.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace ot::trackctl {

struct terminal {
  bool present = false;  // false: a file, a pipe
  bool colours = false;
  std::size_t width = 80;  // columns
};

// Standard output. Colours only on a terminal that is not "dumb", unless NO_COLOR is set.
terminal output_terminal();

// The text as the locale of the user can show it: arrows are "->" where it is not one of UTF-8.
std::string shown_text(std::string text);

// The state's word in its colour: up green, down red, anything else yellow.
std::string coloured_state(const terminal& output, const std::string& text, std::string_view state);

// `text` behind what has been written up to column `column`, broken between words where the width
// is used up; further lines begin at that column again. A longer word is not broken.
std::string wrapped(const terminal& output, std::string_view text, std::size_t column);

}  // namespace ot::trackctl
