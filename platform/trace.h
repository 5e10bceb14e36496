// dbg_: trace flags that are switched at run time, and the output of traces. A flag that is off
// costs its user one relaxed load.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace ot {

struct evm;

struct dbg_flag {
  const char* name = nullptr;  // the item's name below the block's path
  std::atomic<std::uint32_t> enabled{0};
  std::uint32_t index = 0;  // place in its block
  std::uint32_t level = 0;
};

// Initialises record `index` of `block` under `name`, switched off. `level` and `persistent` are
// handed through to the platform. 0, or 22 for a null name.
int dbg_init_event(dbg_flag* block, std::uint32_t index, std::uint32_t level, const char* name,
                   std::uint32_t persistent) noexcept;

// Registers `count` initialised records under `path`, which ends in '/': each becomes a u32 ledger
// item that switches its flag (0 off, other values on). With a null manager (a short-lived
// program) only the present values are looked up. The block must outlive the process's loop.
// 0 or a platform code. Main thread.
int dbg_register(const char* path, dbg_flag* block, std::size_t count, evm* manager) noexcept;

// Writes one trace line, formatted as by printf; a trailing newline in the text is not doubled.
// The caller has tested `flag.enabled`. Does not allocate; long lines are cut. Any thread.
[[gnu::format(printf, 4, 5)]] void dbg_print(const dbg_flag& flag, std::uint32_t reserved1,
                                             std::uint32_t reserved2, const char* format,
                                             ...) noexcept;

}  // namespace ot
