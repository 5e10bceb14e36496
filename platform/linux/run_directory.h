// The directory of the instance's sockets and of what it keeps until the next boot.
#pragma once

#include <sys/types.h>

namespace ot {

inline constexpr const char* run_directory = "/run/object_tracking";

// Creates it (below OT_ROOT) where it is missing, for its owner and the group alone. 0 or an errno
// value; may throw bad_alloc.
int run_directory_create();

// Gives `path` to the group "object_tracking", where that exists, with `mode`.
void run_directory_share(const char* path, mode_t mode) noexcept;

}  // namespace ot
