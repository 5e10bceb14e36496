// Trace flags: a block of records, each tied to a ledger item of its name, so that an operator
// switches it while the service runs. Where the lines go is the platform's (dbg_print).
#include <cstdio>

#include "platform/evm.h"
#include "platform/ledger/calls/call.h"
#include "platform/status.h"
#include "platform/trace.h"

namespace ot {

int dbg_init_event(dbg_flag* block, std::uint32_t index, std::uint32_t level, const char* name,
                   std::uint32_t /*persistent*/) noexcept {
  if (block == nullptr || name == nullptr) {
    return invalid_argument;
  }
  dbg_flag& flag = block[index];
  flag.name = name;
  flag.enabled.store(0, std::memory_order_relaxed);
  flag.index = index;
  flag.level = level;
  return status_ok;
}

// Whether the process hosts the ledger decides between "look up" and "follow", not the manager.
int dbg_register(const char* path, dbg_flag* block, std::size_t count, evm* /*manager*/) noexcept {
  for (dbg_flag* flag = block; flag != block + count; ++flag) {
    char item[128];
    const int length = std::snprintf(item, sizeof item, "%s%s", path, flag->name);
    if (length < 0 || static_cast<std::size_t>(length) >= sizeof item) {
      return invalid_argument;
    }
    if (const int status = ledger_switch_register(item, &flag->enabled); status != status_ok) {
      return status;
    }
  }
  return status_ok;
}

}  // namespace ot
