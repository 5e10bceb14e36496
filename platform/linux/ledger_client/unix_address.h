// The address of a Unix socket.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <string_view>

namespace ot {

// False when the path is too long for an address.
inline bool make_unix_address(std::string_view path, sockaddr_un& ret) noexcept {
  if (path.empty() || path.size() >= sizeof ret.sun_path) {
    return false;
  }
  ret = {};
  ret.sun_family = AF_UNIX;
  path.copy(ret.sun_path, path.size());
  return true;
}

}  // namespace ot
