// Binding a socket to a device needs no privilege as long as it is bound to none yet.
#include "tools/qmond/probe_socket.h"

#include <cerrno>

namespace ot::qmond {

int bind_to_operation(int fd, int family, const operation& what) noexcept {
  if (!what.device.empty() && setsockopt(fd, SOL_SOCKET, SO_BINDTODEVICE, what.device.c_str(),
                                         static_cast<socklen_t>(what.device.size())) != 0) {
    return errno;
  }
  if (what.source.empty()) {
    return 0;
  }
  const address source = address::from_text(what.source, 0);
  if (source.family() != family) {
    return EAFNOSUPPORT;
  }
  return bind(fd, source.get(), source.size()) == 0 ? 0 : errno;
}

int connect_socket(int type, const operation& what, const address& where, unique_fd* ret) noexcept {
  unique_fd made(socket(where.family(), type | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (!made.valid()) {
    return errno;
  }
  if (const int error = bind_to_operation(made.get(), where.family(), what); error != 0) {
    return error;
  }
  if (connect(made.get(), where.get(), where.size()) != 0 && errno != EINPROGRESS) {
    return errno;
  }
  *ret = std::move(made);
  return 0;
}

}  // namespace ot::qmond
