// What the process can ask of its framework, on Linux.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <new>

#include "platform/common/root_path.h"
#include "platform/linux/log/queue.h"
#include "platform/process.h"

namespace ot {

// No destructors: other threads may be running, and the stores need no closing.
void process_exit(int status) {
  log_queue_flush();
  std::fflush(nullptr);
  std::_Exit(status);
}

bool ledger_library_readable() noexcept {
  try {
    return access(pkg_path("/pkg/lib/libledger.so").c_str(), R_OK) == 0;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

}  // namespace ot
