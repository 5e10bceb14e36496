// The dotted-decimal text of an IPv4 address.
#pragma once

#include <cstdint>

namespace ot {

// Text of `address` (network byte order). Valid for the next three calls of the same thread, so two
// can stand in one formatting call.
const char* in_addr_s(std::uint32_t address) noexcept;

}  // namespace ot
