// What one end of a BFD session wants, and what both have agreed on. Intervals in microseconds.
#pragma once

#include <cstdint>

#include "platform/common/bfd/packet.h"

namespace ot::bfd {

// What this end is configured with. No interval is 0.
struct session_timing {
  std::uint32_t desired_min_tx = 0;
  std::uint32_t required_min_rx = 0;
  std::uint8_t detect_multiplier = 0;

  friend bool operator==(const session_timing&, const session_timing&) = default;
};

// What a session has agreed on with its neighbor, for another process to go on with.
struct agreed_session {
  std::uint32_t discriminator = 0;
  std::uint32_t tx = 0;  // in force
  std::uint32_t rx = 0;
  control_packet remote;  // the last one received

  friend bool operator==(const agreed_session&, const agreed_session&) = default;
};

}  // namespace ot::bfd
