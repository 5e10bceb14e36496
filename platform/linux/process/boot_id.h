// The kernel's name for this boot of the machine.
#pragma once

#include <string>

namespace ot {

// Empty when it cannot be read.
std::string read_boot_id();

}  // namespace ot
