// Socket addresses of either family, by value, and sockets that leave through the interface or VRF
// and from the source address of an operation.
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>
#include <string>

#include "platform/linux/unique_fd.h"
#include "tools/qmond/config.h"

namespace ot::qmond {

class address {
 public:
  address() noexcept = default;

  // Of a text such as "192.0.2.1" or "2001:db8::1"; unset when it is none.
  static address from_text(const std::string& text, std::uint16_t port) noexcept;
  // Of what a resolver found.
  static address from_socket(const sockaddr* found, std::uint16_t port) noexcept;

  [[nodiscard]] bool set() const noexcept { return family() != AF_UNSPEC; }
  [[nodiscard]] sa_family_t family() const noexcept { return storage_.any.sa_family; }
  [[nodiscard]] const sockaddr* get() const noexcept { return &storage_.any; }
  [[nodiscard]] socklen_t size() const noexcept;
  [[nodiscard]] const in_addr& v4() const noexcept { return storage_.v4.sin_addr; }
  [[nodiscard]] const in6_addr& v6() const noexcept { return storage_.v6.sin6_addr; }

  // The address without the port.
  [[nodiscard]] std::string text() const;
  [[nodiscard]] bool same_host(const address& other) const noexcept;

 private:
  union {
    sockaddr any;
    sockaddr_in v4;
    sockaddr_in6 v6;
  } storage_{.v6 = {}};
};

// 0 or an errno value.
int bind_to_operation(int fd, int family, const operation& what) noexcept;

// The errno value for what could not be sent as the operation wants: the kernel says of a source
// that is not ours that the network is unreachable.
int why_not_sent(int error, int family, const operation& what) noexcept;

// A non-blocking socket of that type (SOCK_STREAM, SOCK_DGRAM), bound and with its connection begun
// or, where there is none to make, set. 0 or an errno value.
int connect_socket(int type, const operation& what, const address& where, unique_fd* ret) noexcept;

// Lets no command inherit what is open now: what whoever started us has left open, and what
// libraries have opened. Commands start with a clean table all the same; kernels before 5.11 leave
// it at that.
void close_on_exec() noexcept;

}  // namespace ot::qmond
