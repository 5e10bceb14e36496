// IPv4 mask arithmetic for the route configuration: masks arrive in network byte order and are
// looked at in host order, where a contiguous mask is a run of ones from the top bit.
#include "platform/ipv4.h"

#include <arpa/inet.h>

#include <bit>

namespace ot {

bool ipv4_mask_is_contiguous(std::uint32_t mask) noexcept {
  const std::uint32_t host_part = ~ntohl(mask);
  return (host_part & (host_part + 1)) == 0;
}

std::uint32_t ipv4_mask2prefixlen(std::uint32_t mask) noexcept {
  return static_cast<std::uint32_t>(std::popcount(mask));
}

std::uint32_t ipv4_prefixlen2mask(std::uint32_t length) noexcept {
  return length == 0 ? 0 : htonl(~std::uint32_t{0} << (length < 32 ? 32 - length : 0));
}

}  // namespace ot
