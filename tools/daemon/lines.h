// What a daemon has to say, a line at a time, on standard error. Nobody waits for its reader: what
// is not taken at once is kept, up to a bound, and offered again; what is lost is counted and told.
#pragma once

#include <cstddef>
#include <string>

namespace ot {

// Longer lines are cut.
inline constexpr std::size_t log_line_max = 1000;
inline constexpr std::size_t log_lines_max = 1024;  // that wait for the reader

// Any thread. Never waits and throws nothing but std::bad_alloc. What is not taken at once is out
// soon where a loop has line_offers (line_offers.h), and otherwise with what is said next.
void say(const std::string& line);

// At the end of the process: gives a reader that reads a second for what was not taken.
void finish_saying();

// Offers again what was not taken; whether everything is out now. Any thread.
bool offer_lines();

// Readable when lines were kept since they were offered last. The process's own for as long as it
// lives; -1 when the kernel had no descriptor left.
int kept_lines_fd();

}  // namespace ot
