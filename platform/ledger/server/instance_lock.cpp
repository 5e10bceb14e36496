// The lock of an instance: a file in its run directory, which names the process that holds it for
// whoever is refused. It goes with the process, however that ends.
#include "platform/ledger/server/instance_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace ot {

instance_lock::~instance_lock() {
  if (fd_ >= 0) {
    close(fd_);
  }
}

bool instance_lock::take(const std::string& path, std::string& ret_error) {
  const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0640);
  if (fd < 0) {
    ret_error = path + ": " + strerrordesc_np(errno);
    return false;
  }
  char text[32] = {};
  if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
    const bool taken = errno == EWOULDBLOCK;
    const ssize_t length = pread(fd, text, sizeof text - 1, 0);
    ret_error = !taken ? path + ": " + strerrordesc_np(errno)
                       : "another instance runs already: process " +
                             std::to_string(length > 0 ? std::atol(text) : 0) + " holds " + path;
    close(fd);
    return false;
  }
  const int length = std::snprintf(text, sizeof text, "%ld\n", static_cast<long>(getpid()));
  if (ftruncate(fd, 0) != 0 || pwrite(fd, text, static_cast<std::size_t>(length), 0) != length) {
    ret_error = path + ": " + strerrordesc_np(errno);
    close(fd);
    return false;
  }
  fd_ = fd;
  return true;
}

}  // namespace ot
