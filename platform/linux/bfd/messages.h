// What the messages of the BFD engine's control socket say. Pure. Writing throws bad_alloc;
// so does reading, and nothing else.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/fixed_text.h"

namespace ot {

using bfd_label = fixed_text<32>;
using bfd_interface_name = fixed_text<16>;

// A session as the engine is asked for it. Addresses in network byte order.
struct bfd_session_config {
  bfd_interface_name interface;
  std::uint32_t destination = 0;
  std::uint32_t source = 0;    // 0: the engine chooses
  std::uint32_t interval = 0;  // milliseconds, both ways
  std::uint32_t multiplier = 0;

  friend bool operator==(const bfd_session_config&, const bfd_session_config&) = default;
};

// Payloads. The session must not exist yet: a second client's request for it would change it under
// the hands of the first.
std::string bfd_add_payload(const bfd_session_config& session, const bfd_label& label);
std::string bfd_remove_payload(const bfd_label& label);
// For the states of all sessions and for which sessions there are. The engine repeats both at once.
std::string bfd_subscribe_payload();

enum class bfd_operation { other, session_present, session_gone, session_state };

// About one session. Sessions of others may have no label.
struct bfd_notification {
  bfd_operation operation = bfd_operation::other;
  bfd_label label;
  std::uint32_t destination = 0;  // 0 when it is none of a single hop over IPv4
  bfd_interface_name interface;   // may be empty
  bool up = false;                // with session_state
};

// False when the payload is not what the engine sends. `ret` is then unchanged.
bool bfd_read_response(std::string_view payload, bool* ret_accepted);
bool bfd_read_notification(std::string_view payload, bfd_notification* ret);

}  // namespace ot
