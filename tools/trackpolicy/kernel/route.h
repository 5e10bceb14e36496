// A route: as a policy asks for it, and as the kernel has it.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <string>
#include <string_view>

namespace ot::trackpolicy {

// What marks our routes in the kernel: one that nobody else uses (packaging/rt_protos.conf).
inline constexpr std::uint8_t route_protocol = 113;

inline constexpr std::uint32_t main_table = 254;

struct ip_address {
  std::uint8_t family = 0;             // AF_INET, AF_INET6; 0: none
  std::array<std::uint8_t, 16> bytes;  // network byte order; of IPv4 the first four, then zeros

  ip_address() noexcept : bytes{} {}
  auto operator<=>(const ip_address&) const = default;
};

// 4 or 16.
std::size_t size_of_address(std::uint8_t family) noexcept;
// False when it is no address of either family.
bool parse_address(std::string_view text, ip_address* ret);
std::string text_of(const ip_address& address);
// The address with zeros behind the first `length` bits.
ip_address masked(const ip_address& address, std::uint8_t length) noexcept;

// As a policy asks for it.
struct route {
  ip_address to;  // without a family: the default route of the family of `via`, else IPv4
  std::uint8_t length = 0;
  ip_address via;   // without a family: none
  std::string dev;  // empty: the kernel chooses by `via`
  std::uint32_t metric = 0;
  std::uint32_t table = main_table;
  std::string vrf;  // its table instead
  ip_address source;
  std::uint32_t mtu = 0;
  bool onlink = false;

  bool operator==(const route&) const = default;
};

std::uint8_t family_of(const route& what) noexcept;
// As `ip route` writes it.
std::string text_of(const route& what);

// Of routes with the same key the kernel takes only one, unless it is told to.
struct route_key {
  ip_address to;
  std::uint8_t length = 0;
  std::uint32_t table = main_table;
  std::uint32_t metric = 0;

  auto operator<=>(const route_key&) const = default;
};

// As the kernel has it, or is to have it.
struct kernel_route {
  route_key key;
  ip_address via;
  std::uint32_t ifindex = 0;  // to have: 0 for any
  ip_address source;
  std::uint32_t mtu = 0;
  bool onlink = false;
  bool plain = true;  // false: more than the above, so none of ours

  bool operator==(const kernel_route&) const = default;
};

}  // namespace ot::trackpolicy
