// The groups of processes that children lead, also after their leaders, or whoever started them,
// are gone.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string_view>

namespace ot::children {

// To all processes of the group that the child leads. The leader must not be reaped yet, or
// processes of its group be left, so that its number still stands for its group and nobody else's.
void signal_group(pid_t leader, int number) noexcept;

// When a process started, in clock ticks since boot; with its number it names the process. 0: there
// is none.
std::uint64_t start_ticks(pid_t process);

// Whether anything is left of the group of a leader that started then: itself, or, when it has been
// reaped, processes of its group that are not older and have a variable in their environment whose
// name and "=" are `mark`. As long as there are such ones the kernel gives its number to nobody
// else.
bool group_is_left(pid_t leader, std::uint64_t started_ticks, std::string_view mark);

}  // namespace ot::children
