// Waiting for what comes through the loop, with a time limit.
#include <cerrno>
#include <cstdint>
#include <ctime>

#include "platform/linux/loop/descriptors.h"
#include "platform/process.h"
#include "platform/status.h"

namespace ot {
namespace {

constexpr std::uint64_t longest_wait_us = 2'000'000;
constexpr std::uint64_t accuracy_us = 1;

int on_time_over(sd_event_source* /*source*/, std::uint64_t /*now*/, void* time_over) {
  *static_cast<bool*>(time_over) = true;
  return 0;
}

}  // namespace

void process_wait(evm* manager, bool (*ready)()) noexcept {
  bool time_over = false;
  sd_event_source* limit = nullptr;
  if (sd_event_add_time_relative(evm_sd_event(manager), &limit, CLOCK_MONOTONIC, longest_wait_us,
                                 accuracy_us, on_time_over, &time_over) < 0) {
    return;
  }
  while (!ready() && !time_over) {
    const int status = evm_block(manager);
    if (status == status_ok) {
      evm_dispatch(manager);
    } else if (status != EINTR) {
      break;
    }
  }
  sd_event_source_disable_unref(limit);
}

}  // namespace ot
