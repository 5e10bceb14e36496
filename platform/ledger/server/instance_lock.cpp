// Nobody but the service's own user may open the file, since whoever can open it can lock it. The
// number in it has always the same length and is written in place: a full file system that took the
// file once takes it again.
#include "platform/ledger/server/instance_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "platform/common/root_path.h"
#include "platform/linux/process/directories.h"

namespace ot {

unique_fd take_instance_lock(std::string& ret_error) {
  const std::string directory = root_path(run_directory);
  if (make_directory(directory, 0750, ret_error) != 0) {
    return {};
  }
  const std::string path = directory + "/ledger.lock";
  unique_fd file = open_own_file(path, O_RDWR | O_CREAT, 0600, ret_error);
  if (!file.valid()) {
    return {};
  }
  char text[32] = {};
  if (flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
    const bool taken = errno == EWOULDBLOCK;
    ret_error = place_error(path, errno);
    const ssize_t length = pread(file.get(), text, sizeof text - 1, 0);
    if (taken) {
      ret_error = "another instance runs already: process " +
                  std::to_string(length > 0 ? std::atol(text) : 0) + " holds " + path;
    }
    return {};
  }
  const int length = std::snprintf(text, sizeof text, "%-20ld\n", static_cast<long>(getpid()));
  if (pwrite(file.get(), text, static_cast<std::size_t>(length), 0) != length) {
    ret_error = place_error(path, errno);
    return {};
  }
  return file;
}

}  // namespace ot
