// One timer of a loop that is started, restarted and stopped; it never wakes the loop when stopped.
#pragma once

#include <systemd/sd-event.h>

#include <cstdint>

#include "platform/evm.h"

namespace ot::bfd {

class loop_timer {
 public:
  using expired_func = void (*)(void* owner) noexcept;

  loop_timer(expired_func expired, void* owner) noexcept : expired_(expired), owner_(owner) {}
  ~loop_timer();
  loop_timer(const loop_timer&) = delete;
  loop_timer& operator=(const loop_timer&) = delete;

  // Attaches the timer, stopped, to the loop; starting cannot fail after that. 0 or a status code.
  int attach(evm* manager) noexcept;

  // (Re)starts: it expires once, after so many microseconds.
  void start(std::uint64_t usec) noexcept;
  void stop() noexcept;
  [[nodiscard]] bool running() const noexcept { return running_; }
  // For its owner at its expiry: whether that was overlooked (loop/sd_event.h).
  [[nodiscard]] bool overlooked() const noexcept;

 private:
  static int on_expiry(sd_event_source* source, std::uint64_t usec, void* self);

  expired_func expired_;
  void* owner_;
  sd_event_source* source_ = nullptr;
  bool running_ = false;
};

}  // namespace ot::bfd
