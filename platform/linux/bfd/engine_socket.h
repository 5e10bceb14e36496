// Where the BFD engine's control socket is looked for, and reaching it.
#pragma once

#include <string>
#include <vector>

#include "platform/linux/unique_fd.h"

namespace ot {

// In the order in which they are to be tried. OT_BFDD_SOCKET, taken as it is, stands for all.
// Throws bad_alloc. Any thread.
std::vector<std::string> bfd_engine_paths();

// A connection that never blocks; invalid, with errno set, when nobody listens at `path`.
unique_fd bfd_engine_connect(const std::string& path) noexcept;

}  // namespace ot
