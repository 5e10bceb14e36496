// What bfdd logs when a session changes its state, as its live log delivers it. Pure.
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/linux/bfd/engine.h"

namespace ot::bfd::vty {

// A datagram of the live log.
struct log_message {
  std::uint32_t lost = 0;  // so many before it were not delivered
  std::string_view text;   // in the datagram's bytes
};

// False when the bytes are no such datagram.
bool read_log_message(std::string_view datagram, log_message* ret) noexcept;

// A session of one hop over IPv4 that has changed its state.
struct session_move {
  session_key key;  // without an interface: of a session that has none
  std::uint8_t state = bfd_state_down;
  std::uint8_t diagnostic = 0;
};

// False when the text tells of something else.
bool read_session_move(std::string_view text, session_move* ret) noexcept;

}  // namespace ot::bfd::vty
