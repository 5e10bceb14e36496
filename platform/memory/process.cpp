// The process as a test sees it: its end is an exception, and its files are there or not as the
// test says.
#include "platform/process.h"

#include "platform/memory/controls.h"
#include "platform/memory/world.h"

namespace ot {
namespace {

struct process_part {
  bool ledger_library = true;
};

}  // namespace

void process_exit(int status) {
  throw process_exited{status};
}

bool ledger_library_readable() noexcept {
  return world_part<process_part>().ledger_library;
}

namespace field {

void ledger_library_removed() {
  world_part<process_part>().ledger_library = false;
}

void ledger_library_installed() {
  world_part<process_part>().ledger_library = true;
}

}  // namespace field
}  // namespace ot
