// The process as a test sees it: its end is an exception, and its waiting ends when what is waited
// for has come or a test has ordered "process_wait" to fail.
#include "platform/process.h"

#include "platform/memory/controls.h"
#include "platform/memory/world.h"

namespace ot {

void process_exit(int status) {
  throw process_exited{status};
}

void process_wait(evm* /*manager*/, bool (*ready)()) noexcept {
  if (take_failure("process_wait")) {
    return;
  }
  field::await([ready] {
    if (!ready()) {
      field::run_pending();
    }
    return ready();
  });
}

}  // namespace ot
