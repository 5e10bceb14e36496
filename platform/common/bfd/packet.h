// BFD control packets (RFC 5880, section 4.1) as values.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace ot::bfd {

// As on the wire.
enum class session_state : std::uint8_t { admin_down = 0, down = 1, init = 2, up = 3 };
enum class diagnostic : std::uint8_t {
  none = 0,
  detection_time_expired = 1,
  echo_failed = 2,
  neighbor_signaled_down = 3,
  forwarding_plane_reset = 4,
  path_down = 5,
  concatenated_path_down = 6,
  administratively_down = 7,
  reverse_concatenated_path_down = 8,
};

// Intervals in microseconds.
struct control_packet {
  session_state state = session_state::down;
  diagnostic reason = diagnostic::none;
  bool poll = false;
  bool final = false;
  bool control_plane_independent = false;
  bool authentication = false;
  bool demand = false;
  std::uint8_t detect_multiplier = 0;
  std::uint32_t my_discriminator = 0;
  std::uint32_t your_discriminator = 0;
  std::uint32_t desired_min_tx = 0;
  std::uint32_t required_min_rx = 0;
  std::uint32_t required_min_echo_rx = 0;

  friend bool operator==(const control_packet&, const control_packet&) = default;
};

// Why a received packet is of no use, in the order in which it is looked at (RFC 5880, 6.8.6).
enum class discard : std::uint8_t {
  none,
  truncated,           // not even the fixed part
  version,             // other than 1
  length,              // too small for what it announces, or larger than what came
  multiplier,          // 0
  multipoint,          // the bit is set
  my_discriminator,    // 0
  your_discriminator,  // 0 in a state in which the neighbor must know ours
  authentication,      // of which we use none
};

inline constexpr std::size_t control_packet_size = 24;

// Reads what came as one datagram. `ret` is whole only for discard::none.
discard read_control_packet(std::span<const std::byte> datagram, control_packet* ret) noexcept;

std::array<std::byte, control_packet_size> write_control_packet(
    const control_packet& packet) noexcept;

}  // namespace ot::bfd
