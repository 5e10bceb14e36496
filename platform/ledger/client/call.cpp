// Which ledger serves a call: this process's own engine for the thread that hosts it, the socket
// for everyone else. The pointer to the engine lives here, in the library, and nowhere else.
#include "platform/ledger/calls/call.h"

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <thread>

#include "platform/common/root_path.h"
#include "platform/ledger/client/local.h"
#include "platform/ledger/client/remote.h"
#include "platform/process.h"

namespace ot {
namespace {

struct local_ledger {
  std::atomic<ledger_backend*> backend{nullptr};
  std::thread::id owner;
};

local_ledger& local() noexcept {
  static local_ledger hosted;
  return hosted;
}

struct remote_ledger {
  std::mutex mutex;
  ledger_remote backend;
};

// Never destroyed: a call may come from another object's destructor at the process's end.
remote_ledger& remote() {
  static auto* const shared = new remote_ledger;
  return *shared;
}

// The stores' maps are not for a child.
void forget_in_child() noexcept {
  local().backend.store(nullptr, std::memory_order_relaxed);
}

}  // namespace

void ledger_install_local(ledger_backend* backend) noexcept {
  static const int registered = pthread_atfork(nullptr, nullptr, forget_in_child);
  (void)registered;
  local().owner = std::this_thread::get_id();
  local().backend.store(backend, std::memory_order_release);
}

int ledger_enter(int (*body)(ledger_backend& backend, void* argument), void* argument) {
  ledger_backend* const hosted = local().backend.load(std::memory_order_acquire);
  if (hosted != nullptr && local().owner == std::this_thread::get_id()) {
    return body(*hosted, argument);
  }
  remote_ledger& shared = remote();
  const std::lock_guard lock{shared.mutex};
  return body(shared.backend, argument);
}

bool ledger_library_readable() noexcept {
  try {
    return access(pkg_path("/pkg/lib/libledger.so").c_str(), R_OK) == 0;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

}  // namespace ot
