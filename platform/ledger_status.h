// The ledger's status codes. Other services that are reached over a socket use the code of an
// unreachable one too.
#pragma once

#include "platform/status.h"

namespace ot {

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
inline constexpr int ledger_no_answer = status_code(0x40821200);
inline constexpr int ledger_busy = status_code(0x40821400);
inline constexpr int ledger_read_only = status_code(0x40821600);
inline constexpr int ledger_changed = status_code(0x40821800);

}  // namespace ot
