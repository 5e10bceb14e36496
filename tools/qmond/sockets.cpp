// Binding a socket to a device needs no privilege as long as it is bound to none yet.
#include "tools/qmond/sockets.h"

#include <arpa/inet.h>
#include <linux/close_range.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

namespace ot::qmond {

address address::from_text(const std::string& text, std::uint16_t port) noexcept {
  address made;
  if (inet_pton(AF_INET, text.c_str(), &made.storage_.v4.sin_addr) == 1) {
    made.storage_.v4.sin_family = AF_INET;
    made.storage_.v4.sin_port = htons(port);
  } else if (inet_pton(AF_INET6, text.c_str(), &made.storage_.v6.sin6_addr) == 1) {
    made.storage_.v6.sin6_family = AF_INET6;
    made.storage_.v6.sin6_port = htons(port);
  }
  return made;
}

address address::from_socket(const sockaddr* found, std::uint16_t port) noexcept {
  address made;
  if (found->sa_family == AF_INET) {
    std::memcpy(&made.storage_.v4, found, sizeof made.storage_.v4);
    made.storage_.v4.sin_port = htons(port);
  } else if (found->sa_family == AF_INET6) {
    std::memcpy(&made.storage_.v6, found, sizeof made.storage_.v6);
    made.storage_.v6.sin6_port = htons(port);
  }
  return made;
}

socklen_t address::size() const noexcept {
  return family() == AF_INET ? sizeof storage_.v4 : sizeof storage_.v6;
}

std::string address::text() const {
  std::array<char, INET6_ADDRSTRLEN> text{};
  const void* const bytes =
      family() == AF_INET ? static_cast<const void*>(&v4()) : static_cast<const void*>(&v6());
  return set() && inet_ntop(family(), bytes, text.data(), text.size()) != nullptr ? text.data()
                                                                                  : "";
}

bool address::same_host(const address& other) const noexcept {
  if (family() != other.family()) {
    return false;
  }
  return family() == AF_INET ? v4().s_addr == other.v4().s_addr
                             : std::memcmp(&v6(), &other.v6(), sizeof(in6_addr)) == 0;
}

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

int why_not_sent(int error, int family, const operation& what) noexcept {
  if (what.source.empty()) {
    return error;
  }
  const unique_fd tried(socket(family, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  const int refused = tried.valid() ? bind_to_operation(tried.get(), family, what) : 0;
  return refused != 0 ? refused : error;
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

void close_on_exec() noexcept {
  (void)close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
}

}  // namespace ot::qmond
