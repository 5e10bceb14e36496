// Who else has the port of BFD in this namespace. Somebody who opens it later takes the packets
// without a word to those who had it before, so one has to look.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>

namespace ot::bfd {

// A user with a UDP socket over IPv4 on `port` other than the socket `own` (-1: none of ours); none
// when there is nobody else. What cannot be found out counts as nobody. Any thread.
std::optional<uid_t> other_port_owner(std::uint16_t port, int own) noexcept;

// The user by name, else by number. Throws bad_alloc.
std::string user_text(uid_t user);

}  // namespace ot::bfd
