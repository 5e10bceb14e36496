// IPv4 masks. Addresses and masks are u32 in network byte order.
#pragma once

#include <cstdint>

namespace ot {

// True when the mask is a run of one bits from the left (0 and all ones included).
bool ipv4_mask_is_contiguous(std::uint32_t mask) noexcept;

// The number of one bits of the mask, 0 to 32.
std::uint32_t ipv4_mask2prefixlen(std::uint32_t mask) noexcept;

// The mask of `length` leading one bits; lengths over 32 count as 32.
std::uint32_t ipv4_prefixlen2mask(std::uint32_t length) noexcept;

}  // namespace ot
