// Who else has the port of BFD in this namespace. Somebody who opens it later takes the packets
// without a word to those who had it before, so one has to look.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>

namespace ot::bfd {

// Looks for users with a UDP socket over IPv4 on `port` other than the socket `own` (-1: none of
// ours), in the namespace of the thread. Nothing here waits, but for the kernel's loading of its
// module at the first look. Any thread, one at a time.
class port_owners {
 public:
  // None when there is nobody else. What cannot be found out counts as nobody.
  std::optional<uid_t> other(std::uint16_t port, int own) noexcept;

 private:
  bool kernel_answers_ = true;  // as far as is known
};

// The two ways to look. The kernel's answer holds the sockets on that port alone: 0, or the errno
// value of a kernel that does not give it. `ret` is set on success only.
int diagnosed_port_owner(std::uint16_t port, int own, std::optional<uid_t>* ret) noexcept;
// From the list of all sockets, which takes the longer the more there are.
std::optional<uid_t> listed_port_owner(std::uint16_t port, int own) noexcept;

// The user by name, else by number. Throws bad_alloc.
std::string user_text(uid_t user);

}  // namespace ot::bfd
