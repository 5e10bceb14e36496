// Ledger items that switch a word in the process: the trace flags.
#pragma once

#include <atomic>
#include <cstdint>

namespace ot {

// Ties the u32 item `path` (absolute) to `word`: the item's stored value is put into the word now,
// and every later set of the item changes it (a delete makes it 0). In a process that does not host
// the ledger only the present value is looked up, and an unreachable ledger leaves the word alone.
// The word must outlive the ledger. 0 or a status code.
int ledger_switch_register(const char* path, std::atomic<std::uint32_t>* word) noexcept;

}  // namespace ot
