// Status codes: every operation returns an int, 0 for success. Small values are errno values used
// directly; platform and component failures are 32-bit codes, kept in the same int. `err_string`
// gives the text of each.
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

// Event manager.
inline constexpr int open_in_progress = status_code(0x21200e00);

// Ledger.
inline constexpr int ledger_no_data = status_code(0x40818600);
inline constexpr int ledger_list_end = status_code(0x40828600);
inline constexpr int ledger_provider_failure = status_code(0x40829000);
inline constexpr int ledger_library_missing = status_code(0x8081c200);
inline constexpr int ledger_unreachable = status_code(0x40820200);
inline constexpr int ledger_unknown_path = status_code(0x40820400);
inline constexpr int ledger_wrong_kind = status_code(0x40820600);
inline constexpr int ledger_denied = status_code(0x40820800);
inline constexpr int ledger_full = status_code(0x40820a00);
inline constexpr int ledger_storage_failure = status_code(0x40820c00);
inline constexpr int ledger_bad_message = status_code(0x40820e00);
inline constexpr int ledger_not_available = status_code(0x40821000);

// FIB client: the prefix is registered already.
inline constexpr int fib_already_registered = status_code(0x4ff40a00);

// Typed records.
inline constexpr int record_bad_descriptor = status_code(0x40830200);
inline constexpr int record_malformed = status_code(0x40830400);
inline constexpr int record_unknown_type = status_code(0x40830600);

// The component's own configuration refusals.
inline constexpr int track_type_conflict = status_code(0xa64c8200);
inline constexpr int route_mask_not_contiguous = status_code(0xa64c8400);
inline constexpr int probe_package_missing = status_code(0xa64c8600);
inline constexpr int probe_operation_taken = status_code(0xa64c8800);
inline constexpr int list_names_itself = status_code(0xa64c8a00);
inline constexpr int too_many_tracks = status_code(0xa64c8c00);
inline constexpr int threshold_limits_crossed = status_code(0xa64c8e00);

// The text of a status code, never null. The text of an unknown code names the code in hexadecimal
// and stays valid until the same thread's next call. Any thread.
const char* err_string(int code) noexcept;

}  // namespace ot
