// Status codes: every operation returns an int, 0 for success. Small values are errno values used
// directly; platform and component failures are 32-bit codes, kept in the same int. Those stand
// with what returns them: ledger_status.h, component_status.h, brec.h, fib_client.h,
// event_connections.h. err_string.h gives the text of each.
#pragma once

#include <cstdint>

namespace ot {

// A 32-bit platform code as the int that carries it.
constexpr int status_code(std::uint32_t code) noexcept {
  return static_cast<int>(code);
}

inline constexpr int status_ok = 0;
inline constexpr int not_found_errno = 2;
inline constexpr int no_memory = 12;
inline constexpr int invalid_argument = 22;
inline constexpr int duplicate_key = 76;

}  // namespace ot
