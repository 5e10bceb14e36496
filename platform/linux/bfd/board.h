// What the operator may be told of the engine and of the sessions, at any moment and on any thread:
// the BFD loop writes it here when it changes.
#pragma once

#include "platform/bfd_status.h"

namespace ot::bfd {

// What the client names a session by.
struct client_key {
  std::uint32_t ifhandle = 0;
  std::uint32_t destination = 0;  // network byte order

  friend auto operator<=>(const client_key&, const client_key&) = default;
};

// All: any thread. A session without a place on the board for want of memory is not told of.
void board_engine(const bfdc_engine_status& status) noexcept;
void board_session(const client_key& key, const bfdc_session_status& status) noexcept;
void board_remove(const client_key& key) noexcept;
void board_clear() noexcept;

}  // namespace ot::bfd
