// After the ICMP sockets are open nothing needs a capability any more. Without new privileges not
// even a program with the set-user-id bit, or any program of a root without capabilities, brings
// them back.
#include "tools/qmond/privileges.h"

#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

namespace ot::qmond {

void drop_privileges() {
  __user_cap_header_struct header{.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
  const std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> none{};
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
      syscall(SYS_capset, &header, none.data()) != 0) {
    throw std::system_error(errno, std::generic_category(), "privileges cannot be dropped");
  }
}

}  // namespace ot::qmond
