// A timer of the BFD client on its loop. One kernel source is made at the start and kept, so that
// nothing can fail when a deadline is needed.
#include "platform/linux/bfd/timer.h"

#include "platform/linux/loop/sd_event.h"
#include "platform/status.h"

namespace ot::bfd {
namespace {

// Not 0: that would mean a quarter of a second to the loop.
constexpr std::uint64_t accuracy_usec = 1;

}  // namespace

loop_timer::~loop_timer() {
  sd_event_source_disable_unref(source_);
}

int loop_timer::attach(evm* manager) noexcept {
  int r = sd_event_add_time(evm_sd_event(manager), &source_, CLOCK_MONOTONIC, 0, accuracy_usec,
                            on_expiry, this);
  if (r >= 0) {
    r = sd_event_source_set_enabled(source_, SD_EVENT_OFF);
  }
  return r < 0 ? -r : status_ok;
}

void loop_timer::start(std::uint64_t usec) noexcept {
  sd_event_source_set_time_relative(source_, usec);
  sd_event_source_set_enabled(source_, SD_EVENT_ONESHOT);
  running_ = true;
}

void loop_timer::stop() noexcept {
  if (running_) {
    sd_event_source_set_enabled(source_, SD_EVENT_OFF);
    running_ = false;
  }
}

bool loop_timer::overlooked() const noexcept {
  return evm_overlooked(source_);
}

int loop_timer::on_expiry(sd_event_source* /*source*/, std::uint64_t /*usec*/, void* self) {
  auto* timer = static_cast<loop_timer*>(self);
  timer->running_ = false;
  timer->expired_(timer->owner_);
  return 0;
}

}  // namespace ot::bfd
