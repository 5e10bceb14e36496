// The ledger's directories and its lock. The service may run as root or as a user of its own, and
// its directories may have been made for it: what exists is left as it is.
#include "platform/linux/ledger_server/places.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>

namespace ot {

gid_t ledger_group() noexcept {
  const group* entry = getgrnam("object_tracking");
  return entry == nullptr ? static_cast<gid_t>(-1) : entry->gr_gid;
}

int make_ledger_directory(const std::string& path, mode_t mode) {
  for (std::size_t end = path.find('/', 1); end != std::string::npos;
       end = path.find('/', end + 1)) {
    if (mkdir(path.substr(0, end).c_str(), 0755) != 0 && errno != EEXIST) {
      return errno;
    }
  }
  if (mkdir(path.c_str(), mode) != 0) {
    return errno == EEXIST ? 0 : errno;
  }
  if (chmod(path.c_str(), mode) != 0) {  // whatever the umask
    return errno;
  }
  const gid_t members = ledger_group();
  if (members != static_cast<gid_t>(-1) && chown(path.c_str(), static_cast<uid_t>(-1), members) &&
      errno != EPERM) {  // a user outside the group keeps its own
    return errno;
  }
  return 0;
}

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

std::string read_boot_id() {
  std::ifstream file{"/proc/sys/kernel/random/boot_id"};
  std::string id;
  std::getline(file, id);
  return id;
}

}  // namespace ot
