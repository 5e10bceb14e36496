// The address of a Unix socket.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>
#include <string_view>

namespace ot {

// False when the path is too long for an address.
inline bool unix_address(std::string_view path, sockaddr_un* ret) noexcept {
  if (path.size() >= sizeof ret->sun_path) {
    return false;
  }
  *ret = {};
  ret->sun_family = AF_UNIX;
  std::memcpy(ret->sun_path, path.data(), path.size());
  return true;
}

}  // namespace ot
