// ICMP echo packets of both families, without sockets.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace ot::qmond {

struct echo_header {
  bool reply = false;
  std::uint16_t id = 0;
  std::uint16_t sequence = 0;
};

inline constexpr std::size_t echo_header_size = 8;

// A request whose payload of `payload` bytes (at least 8) begins with `token`. `family` is AF_INET,
// whose checksum is made here, or AF_INET6, whose checksum the kernel makes.
std::vector<std::byte> echo_request(int family, std::uint16_t id, std::uint16_t sequence,
                                    std::uint64_t token, std::size_t payload);

// The header of an echo request or reply; nothing for any other packet.
std::optional<echo_header> parse_echo(int family, std::span<const std::byte> packet) noexcept;

// The first eight bytes of the payload; 0 when there are fewer.
std::uint64_t echo_token(std::span<const std::byte> packet) noexcept;

// What follows the IPv4 header that a raw socket delivers with each packet; empty when malformed.
std::span<const std::byte> behind_ipv4_header(std::span<const std::byte> packet) noexcept;

}  // namespace ot::qmond
