// Where the ledger lives: its directories, and the lock that keeps a second instance out.
#pragma once

#include <sys/types.h>

#include <string>

namespace ot {

// The group whose members may use the ledger; -1 when there is none of its name.
gid_t ledger_group() noexcept;

// Makes the directory and what is missing above it; the directory itself with `mode` and the
// ledger's group, when it is new. 0 or an errno.
int make_ledger_directory(const std::string& path, mode_t mode);

// Holds the lock file as long as it lives.
class instance_lock {
 public:
  instance_lock() noexcept = default;
  ~instance_lock();
  instance_lock(const instance_lock&) = delete;
  instance_lock& operator=(const instance_lock&) = delete;

  // False when another process has it, or when it cannot be made: `ret_error` says which.
  bool take(const std::string& path, std::string& ret_error);

 private:
  int fd_ = -1;
};

// The kernel's name for this boot of the machine; empty when it cannot be read.
std::string read_boot_id();

}  // namespace ot
