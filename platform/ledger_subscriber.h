// ledger_: following changes of operational data from another process.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "platform/ledger.h"

namespace ot {

struct ledger_subscription;

struct ledger_notice {
  bool resync = false;      // notices were dropped: read everything again; the rest is empty
  std::string path;         // relative to the followed path
  std::uint32_t kind = 0;   // ledger_notification_set or _delete
  std::uint32_t value = 0;  // the new value of a set, the old one of a delete
};

// Follows everything below `path` (absolute, ends in '/'). 0 or a status code.
int ledger_subscribe(const char* path, ledger_subscription** ret) noexcept;
// Waits at most `timeout_ms` (-1: for ever) for notices and hands each to `on_notice`. 0, also when
// nothing came; ledger_unreachable when the service has gone.
int ledger_subscription_wait(ledger_subscription* subscription, int timeout_ms,
                             const std::function<void(const ledger_notice&)>& on_notice);
void ledger_unsubscribe(ledger_subscription* subscription) noexcept;

}  // namespace ot
