// The instance's directories, and who may use what is in them.
#pragma once

#include <sys/types.h>

#include <string>

namespace ot {

inline constexpr const char* run_directory = "/run/object_tracking";

// The group whose members may use the service; -1 when there is none of its name.
gid_t service_group() noexcept;

// Gives `path` exactly `mode`, whatever the umask, and the service's group where there is one. 0 or
// an errno value.
int share_with_group(const std::string& path, mode_t mode) noexcept;

// Makes the directory and what is missing above it; the directory itself, when it is new, with
// `mode` and the service's group. 0 or an errno value.
int make_directory(const std::string& path, mode_t mode);

}  // namespace ot
