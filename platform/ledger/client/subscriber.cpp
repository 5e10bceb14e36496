// Following operational data: a connection of its own, on which the service sends notices.
#include "platform/ledger_subscriber.h"

#include <cerrno>
#include <iterator>
#include <memory>
#include <new>
#include <utility>

#include "platform/ledger/client/link.h"
#include "platform/ledger/messages.h"
#include "platform/ledger_status.h"
#include "platform/linux/monotonic.h"

namespace ot {

struct ledger_subscription {
  ledger_link link;
  ledger_notices arrived;  // and not handed out yet
  bool malformed = false;
};

namespace {

constexpr std::uint64_t microseconds_per_ms = 1000;

// Only gathers: the caller's function may throw, and this is called by C code.
int on_message(sd_bus_message* message, void* userdata, sd_bus_error* /*error*/) {
  auto& subscription = *static_cast<ledger_subscription*>(userdata);
  if (sd_bus_message_is_signal(message, ledger_interface, ledger_member::notices) <= 0) {
    return 0;
  }
  std::span<const std::byte> body;
  bool good = ledger_message_body(message, body) == status_ok;
  try {
    ledger_reader reader{body};
    ledger_notices notices = ledger_take_notices(reader);
    std::move(notices.begin(), notices.end(), std::back_inserter(subscription.arrived));
    good = good && reader.finished();
  } catch (const std::bad_alloc&) {
    good = false;
  }
  subscription.malformed = subscription.malformed || !good;
  return 1;
}

// Takes in everything that is there. 0 or a status code.
int take_in(ledger_subscription& subscription) {
  sd_bus* bus = subscription.link.bus();
  for (;;) {
    const int result = sd_bus_process(bus, nullptr);
    if (result < 0 || sd_bus_is_open(bus) <= 0) {
      return ledger_unreachable;
    }
    if (subscription.malformed) {
      return ledger_bad_message;
    }
    if (result == 0) {
      return status_ok;
    }
  }
}

// Waits until something has arrived, `end` or a signal, which may be meant to end the waiting.
int wait_until(ledger_subscription& subscription, std::uint64_t end) {
  for (;;) {
    const int status = take_in(subscription);
    if (status != status_ok || !subscription.arrived.empty()) {
      return status;
    }
    const std::uint64_t now = end == UINT64_MAX ? 0 : monotonic_us();
    if (now >= end) {
      return status_ok;
    }
    const int waited =
        sd_bus_wait(subscription.link.bus(), end == UINT64_MAX ? UINT64_MAX : end - now);
    if (waited < 0) {
      return waited == -EINTR ? status_ok : ledger_unreachable;
    }
  }
}

}  // namespace

int ledger_subscribe(const char* path, ledger_subscription** ret) noexcept {
  try {
    auto subscription = std::make_unique<ledger_subscription>();
    if (const int status = subscription->link.ensure(); status != status_ok) {
      return status;
    }
    if (sd_bus_add_filter(subscription->link.bus(), nullptr, on_message, subscription.get()) < 0) {
      return no_memory;
    }
    ledger_writer request;
    request.text(path == nullptr ? "" : path);
    ledger_reply reply;
    const int status = subscription->link.call(ledger_member::subscribe, request, reply);
    if (status == status_ok) {
      *ret = subscription.release();
    }
    return status;
  } catch (const std::bad_alloc&) {
    return no_memory;
  }
}

int ledger_subscription_wait(ledger_subscription* subscription, int timeout_ms,
                             const std::function<void(const ledger_notice&)>& on_notice) {
  if (subscription->link.bus() == nullptr) {
    return ledger_unreachable;
  }
  const std::uint64_t end =
      timeout_ms < 0
          ? UINT64_MAX
          : monotonic_us() + static_cast<std::uint64_t>(timeout_ms) * microseconds_per_ms;
  const int status = wait_until(*subscription, end);
  for (const ledger_notice& notice : std::exchange(subscription->arrived, {})) {
    on_notice(notice);
  }
  return status;
}

void ledger_unsubscribe(ledger_subscription* subscription) noexcept {
  delete subscription;
}

}  // namespace ot
