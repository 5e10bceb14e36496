// The lock that keeps a second instance off a root.
#pragma once

#include <string>

#include "platform/linux/unique_fd.h"

namespace ot {

// Makes the run directory and takes the lock in it: a file that names the process which holds it,
// for whoever is refused. It is held as long as the descriptor is open, however the process ends.
// Not valid when another process has it, or when it cannot be made; `ret_error` says which.
unique_fd take_instance_lock(std::string& ret_error);

}  // namespace ot
