// What trackpolicy has to say, a line at a time, on standard error. Nobody waits for its reader:
// what is not taken is kept, up to a bound, and offered again; what is lost is counted and told.
#pragma once

#include <cstddef>
#include <string>

namespace ot::trackpolicy {

// Longer lines are cut.
inline constexpr std::size_t log_line_max = 1000;
inline constexpr std::size_t log_lines_max = 1024;  // that wait for the reader

// Any thread. Never waits and throws nothing but std::bad_alloc.
void say(const std::string& line);

// Offers again what was not taken; whether everything is out now. Any thread.
bool say_rest();

// At the end of the process: gives a reader that reads a second for what was not taken.
void finish_saying();

}  // namespace ot::trackpolicy
