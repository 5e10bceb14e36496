// Following operational data in memory: the notices of a batch are there when the batch was sent,
// so waiting never waits.
#include <algorithm>

#include "platform/ledger/path.h"
#include "platform/ledger_subscriber.h"
#include "platform/memory/alloc_faults.h"
#include "platform/memory/ledger_state.h"
#include "platform/status.h"

namespace ot {

int ledger_subscribe(const char* path, ledger_subscription** ret) noexcept {
  const alloc_faults_paused pause;
  if (path == nullptr || !ledger_base_path_valid(path)) {
    return ledger_unknown_path;
  }
  auto* subscription = new ledger_subscription{path, {}};
  ledger_memory_instance().environment.followers.push_back(subscription);
  *ret = subscription;
  return status_ok;
}

int ledger_subscription_wait(ledger_subscription* subscription, int /*timeout_ms*/,
                             const std::function<void(const ledger_notice&)>& on_notice) {
  while (!subscription->backlog.empty()) {
    for (const ledger_notice& notice : subscription->backlog.pop()) {
      on_notice(notice);
    }
  }
  return status_ok;
}

void ledger_unsubscribe(ledger_subscription* subscription) noexcept {
  std::erase(ledger_memory_instance().environment.followers, subscription);
  delete subscription;
}

}  // namespace ot
