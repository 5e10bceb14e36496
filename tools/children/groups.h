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

// A process, and nobody that is given its number later.
struct process_identity {
  pid_t number = 0;                 // 0: none
  std::uint64_t started_ticks = 0;  // clock ticks since boot
};

// Of a line of /proc/PID/stat. What is no such line names none.
process_identity identity_in(std::string_view stat_line);

// Whether anything is left of the group of that leader: itself, or, when it has been reaped,
// processes of its group that are not older and have a variable in their environment whose name and
// "=" are `mark`. As long as there are such ones the kernel gives its number to nobody else.
bool group_is_left(const process_identity& leader, std::string_view mark);

}  // namespace ot::children
