#include "platform/common/bfd/packet.h"

namespace ot::bfd {
namespace {

constexpr std::uint8_t version = 1;
constexpr std::uint8_t authenticated_size = 26;  // with the shortest authentication section

// Bits of the second byte, below the state.
constexpr std::uint8_t poll_bit = 0x20;
constexpr std::uint8_t final_bit = 0x10;
constexpr std::uint8_t independent_bit = 0x08;
constexpr std::uint8_t authentication_bit = 0x04;
constexpr std::uint8_t demand_bit = 0x02;
constexpr std::uint8_t multipoint_bit = 0x01;

std::uint8_t byte_at(std::span<const std::byte> datagram, std::size_t at) noexcept {
  return std::to_integer<std::uint8_t>(datagram[at]);
}

std::uint32_t number_at(std::span<const std::byte> datagram, std::size_t at) noexcept {
  return static_cast<std::uint32_t>(byte_at(datagram, at)) << 24 |
         static_cast<std::uint32_t>(byte_at(datagram, at + 1)) << 16 |
         static_cast<std::uint32_t>(byte_at(datagram, at + 2)) << 8 | byte_at(datagram, at + 3);
}

bool knows_no_state(const control_packet& packet) noexcept {
  return packet.state == session_state::down || packet.state == session_state::admin_down;
}

discard judge(std::span<const std::byte> datagram, const control_packet& packet) noexcept {
  const std::uint8_t length = byte_at(datagram, 3);
  const std::size_t least = packet.authentication ? authenticated_size : control_packet_size;
  if (byte_at(datagram, 0) >> 5 != version) {
    return discard::version;
  }
  if (length < least || length > datagram.size()) {
    return discard::length;
  }
  if (packet.detect_multiplier == 0) {
    return discard::multiplier;
  }
  if ((byte_at(datagram, 1) & multipoint_bit) != 0) {
    return discard::multipoint;
  }
  if (packet.my_discriminator == 0) {
    return discard::my_discriminator;
  }
  if (packet.your_discriminator == 0 && !knows_no_state(packet)) {
    return discard::your_discriminator;
  }
  return packet.authentication ? discard::authentication : discard::none;
}

}  // namespace

discard read_control_packet(std::span<const std::byte> datagram, control_packet* ret) noexcept {
  if (datagram.size() < control_packet_size) {
    return discard::truncated;
  }
  const std::uint8_t flags = byte_at(datagram, 1);
  ret->reason = static_cast<diagnostic>(byte_at(datagram, 0) & 0x1f);
  ret->state = static_cast<session_state>(flags >> 6);
  ret->poll = (flags & poll_bit) != 0;
  ret->final = (flags & final_bit) != 0;
  ret->control_plane_independent = (flags & independent_bit) != 0;
  ret->authentication = (flags & authentication_bit) != 0;
  ret->demand = (flags & demand_bit) != 0;
  ret->detect_multiplier = byte_at(datagram, 2);
  ret->my_discriminator = number_at(datagram, 4);
  ret->your_discriminator = number_at(datagram, 8);
  ret->desired_min_tx = number_at(datagram, 12);
  ret->required_min_rx = number_at(datagram, 16);
  ret->required_min_echo_rx = number_at(datagram, 20);
  return judge(datagram, *ret);
}

std::array<std::byte, control_packet_size> write_control_packet(
    const control_packet& packet) noexcept {
  std::array<std::byte, control_packet_size> datagram{};
  const auto put = [&datagram](std::size_t at, unsigned value) {
    datagram[at] = static_cast<std::byte>(value);
  };
  const auto put_number = [&put](std::size_t at, std::uint32_t value) {
    for (std::size_t i = 0; i < 4; ++i) {
      put(at + i, value >> (24 - 8 * i) & 0xff);
    }
  };
  put(0, version << 5U | static_cast<unsigned>(packet.reason));
  put(1, static_cast<unsigned>(packet.state) << 6U | (packet.poll ? poll_bit : 0U) |
             (packet.final ? final_bit : 0U) |
             (packet.control_plane_independent ? independent_bit : 0U) |
             (packet.authentication ? authentication_bit : 0U) | (packet.demand ? demand_bit : 0U));
  put(2, packet.detect_multiplier);
  put(3, control_packet_size);
  put_number(4, packet.my_discriminator);
  put_number(8, packet.your_discriminator);
  put_number(12, packet.desired_min_tx);
  put_number(16, packet.required_min_rx);
  put_number(20, packet.required_min_echo_rx);
  return datagram;
}

}  // namespace ot::bfd
