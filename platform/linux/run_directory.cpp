// The run directory. The group is a help for operators, not a need: where it does not exist, or the
// service may not give files to it, everything stays with the service's own user.
#include "platform/linux/run_directory.h"

#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "platform/common/root_path.h"

namespace ot {
namespace {

constexpr const char* group_name = "object_tracking";

}  // namespace

int run_directory_create() {
  const std::string path = root_path(run_directory);
  for (std::size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
    const bool last = end == std::string::npos;
    const std::string part = path.substr(0, end);
    if (mkdir(part.c_str(), last ? 0750 : 0755) == 0) {
      if (last) {
        run_directory_share(part.c_str(), 0750);
      }
    } else if (errno != EEXIST) {
      return errno;
    }
    if (last) {
      return 0;
    }
  }
}

void run_directory_share(const char* path, mode_t mode) noexcept {
  if (const group* shared = getgrnam(group_name)) {
    // Refused to an unprivileged service: then the owner alone has the path.
    [[maybe_unused]] const int result = chown(path, static_cast<uid_t>(-1), shared->gr_gid);
  }
  chmod(path, mode);
}

}  // namespace ot
