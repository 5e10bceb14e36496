// The lock that keeps a second instance out.
#pragma once

#include <string>

namespace ot {

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

}  // namespace ot
