// The instance's directories and files, and who may use what is in them. What the service opens has
// to belong to its own user or to root, be what it is taken for, and be closed to the writing of
// others: everything else is refused with a text that says what is wrong and what would be right.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

#include "platform/linux/unique_fd.h"

namespace ot {

inline constexpr const char* run_directory = "/run/object_tracking";

// The group whose members may use the service; -1 when there is none of its name.
gid_t service_group() noexcept;

// Gives `path` exactly `mode`, whatever the umask, and the service's group where there is one. 0 or
// an errno value.
int share_with_group(const std::string& path, mode_t mode) noexcept;

// "PATH: what is wrong with it" for an errno value.
std::string place_error(const std::string& path, int error);

// Makes the directory and what is missing above it; the directory itself, when it is new, with
// `mode` and the service's group. One that is there is checked, and so are those above it up to
// OT_ROOT. 0, or an errno value with a text for the operator in `ret_error`.
int make_directory(const std::string& path, mode_t mode, std::string& ret_error);

// Opens a regular file with `flags` (O_CLOEXEC and O_NOFOLLOW are added) and checks it; a new one
// gets exactly `mode`. Not valid on failure, with errno set and a text in `ret_error`.
unique_fd open_own_file(const std::string& path, int flags, mode_t mode, std::string& ret_error);

// The whole of an own file of at most `limit` bytes. 0 or an errno value, as above.
int read_own_file(const std::string& path, std::size_t limit, std::string& ret,
                  std::string& ret_error);

// Puts `content` in the place of the file, as a whole: a crash in between leaves the old one.
// `durable`: it is on the disk afterwards. 0 or an errno value, as above; the old file is kept.
int replace_own_file(const std::string& path, std::string_view content, mode_t mode, bool durable,
                     std::string& ret_error);

// Makes what happened to the names in the directory of `path` durable. 0 or an errno value.
int sync_directory_of(const std::string& path) noexcept;

}  // namespace ot
