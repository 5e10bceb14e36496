// This boot of the machine: the kernel's name for it, and how often the service has been started
// in it.
#pragma once

#include <cstdint>
#include <string>

namespace ot {

// The kernel's boot id, which distinguishes what was kept in this boot from what an earlier one
// left behind. Empty when it cannot be read.
std::string read_boot_id();

// Counts this start: 1 for the first after a boot. The count is kept, with the boot it belongs to,
// in the run directory. 0, or an errno value with a text for the operator.
int start_count_next(std::uint32_t* ret, std::string& ret_error);

}  // namespace ot
