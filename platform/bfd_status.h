// What runs the BFD sessions at present, and how each of them is: for the operator, nothing decides
// by it.
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/bfd_client.h"
#include "platform/fixed_text.h"

namespace ot {

// Who runs the sessions at present.
struct bfdc_engine_status {
  bool running = false;
  fixed_text<48> name;     // with its version, as far as it is known
  fixed_text<160> reason;  // why this one; or why it does not run
  std::int64_t since = 0;  // wall-clock seconds: it runs, or does not, since then
  // Packets that came and were dropped: malformed, from afar, or for no session. Own engine only.
  std::uint64_t discarded = 0;

  friend bool operator==(const bfdc_engine_status&, const bfdc_engine_status&) = default;
};
// Any thread.
bfdc_engine_status bfdc_engine() noexcept;

// States and diagnostics by their numbers in the protocol (RFC 5880, 4.1).
inline constexpr std::uint8_t bfd_state_admin_down = 0;
inline constexpr std::uint8_t bfd_state_down = 1;
inline constexpr std::uint8_t bfd_state_init = 2;
inline constexpr std::uint8_t bfd_state_up = 3;

inline constexpr std::string_view bfd_diagnostic_texts[] = {
    "none",
    "control detection time expired",
    "echo function failed",
    "neighbor signaled session down",
    "forwarding plane reset",
    "path down",
    "concatenated path down",
    "administratively down",
    "reverse concatenated path down",
};

// A session as its engine knows it. Intervals in microseconds, 0 when they are not known.
struct bfdc_session_status {
  std::uint8_t state = bfd_state_down;
  std::uint8_t diagnostic = 0;
  std::uint8_t remote_state = bfd_state_down;
  std::uint8_t remote_diagnostic = 0;
  bool of_another = false;              // run for somebody else, with his intervals; followed only
  std::uint32_t transmit_interval = 0;  // between two packets of ours
  std::uint32_t receive_interval = 0;   // at most, between two of the neighbor's
  std::uint32_t detection_time = 0;
  std::uint64_t packets_in = 0;
  std::uint64_t packets_out = 0;
  std::uint32_t ups = 0;
  std::uint32_t downs = 0;
  fixed_text<96> problem;  // why it is not run; empty when it is

  friend bool operator==(const bfdc_session_status&, const bfdc_session_status&) = default;
};
// How many of the sessions that are wanted nobody runs: those with a problem. Any thread.
std::uint32_t bfdc_sessions_not_run() noexcept;
// False when no such session is wanted. Any thread.
bool bfdc_session(std::uint32_t ifhandle, const bfd_address& destination,
                  bfdc_session_status* ret) noexcept;

}  // namespace ot
