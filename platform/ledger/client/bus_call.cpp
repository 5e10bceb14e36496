// sd_bus_call gives a request up when a signal comes, and its answer is lost; a program with an
// interval timer would hardly get one.
#include "platform/ledger/client/bus_call.h"

#include <cerrno>

#include "platform/linux/monotonic.h"

namespace ot {
namespace {

struct slot_closer {
  void operator()(sd_bus_slot* slot) const noexcept { sd_bus_slot_unref(slot); }
};

int keep_answer(sd_bus_message* answer, void* kept, sd_bus_error* /*error*/) noexcept {
  static_cast<message_handle*>(kept)->reset(sd_bus_message_ref(answer));
  return 1;
}

}  // namespace

int wait_until_us(sd_bus* bus, std::uint64_t end_us) noexcept {
  const std::uint64_t now = monotonic_us();
  if (now >= end_us) {
    return -ETIMEDOUT;
  }
  const int result = sd_bus_wait(bus, end_us - now);
  return result < 0 && result != -EINTR ? result : 0;
}

int call_and_wait(sd_bus* bus, sd_bus_message* request, std::uint64_t timeout_us,
                  message_handle& ret) noexcept {
  const std::uint64_t end = monotonic_us() + timeout_us;
  message_handle answer;
  sd_bus_slot* made = nullptr;
  int result = sd_bus_call_async(bus, &made, request, keep_answer, &answer, timeout_us);
  const std::unique_ptr<sd_bus_slot, slot_closer> slot{made};
  while (result >= 0 && answer == nullptr) {
    result = sd_bus_process(bus, nullptr);
    if (result == 0) {
      result = wait_until_us(bus, end);
    } else if (result == -EINTR) {
      result = 0;
    }
  }
  if (answer == nullptr) {
    return result;
  }
  if (sd_bus_message_is_method_error(answer.get(), nullptr) > 0) {
    return sd_bus_is_open(bus) > 0 ? -sd_bus_message_get_errno(answer.get()) : -ECONNRESET;
  }
  ret = std::move(answer);
  return 0;
}

}  // namespace ot
