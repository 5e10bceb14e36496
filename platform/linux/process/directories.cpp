// Making directories. The service may run as root or as a user of its own, and its directories may
// have been made for it: what exists is left as it is. The group is a help for operators, not a
// need.
#include "platform/linux/process/directories.h"

#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace ot {

gid_t service_group() noexcept {
  const group* entry = getgrnam("object_tracking");
  return entry == nullptr ? static_cast<gid_t>(-1) : entry->gr_gid;
}

int share_with_group(const std::string& path, mode_t mode) noexcept {
  if (chmod(path.c_str(), mode) != 0) {
    return errno;
  }
  const gid_t members = service_group();
  const bool shared = members == static_cast<gid_t>(-1) ||
                      chown(path.c_str(), static_cast<uid_t>(-1), members) == 0 ||
                      errno == EPERM;  // a user outside the group keeps its own
  return shared ? 0 : errno;
}

int make_directory(const std::string& path, mode_t mode) {
  for (std::size_t end = path.find('/', 1); end != std::string::npos;
       end = path.find('/', end + 1)) {
    if (mkdir(path.substr(0, end).c_str(), 0755) != 0 && errno != EEXIST) {
      return errno;
    }
  }
  if (mkdir(path.c_str(), mode) != 0) {
    return errno == EEXIST ? 0 : errno;
  }
  return share_with_group(path, mode);
}

}  // namespace ot
