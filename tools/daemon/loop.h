// The event loop's sources as owners: what is watched is watched as long as the object lives, and
// not a moment longer, so that its descriptor may be closed next. An object may be ended from
// within its own callback.
#pragma once

#include <systemd/sd-event.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <utility>

#include "platform/linux/monotonic.h"

namespace ot {

class loop_source {
 public:
  using callback = std::function<void(std::uint32_t events)>;

  loop_source() noexcept = default;
  ~loop_source() { end(); }
  loop_source(loop_source&& other) noexcept : state_(std::move(other.state_)) {}
  loop_source& operator=(loop_source&& other) noexcept;

  // Each throws std::system_error when the kernel refuses.

  // `events` of EPOLLIN and its kin; the callback gets those that came.
  static loop_source descriptor(sd_event* loop, int fd, std::uint32_t events, callback call);
  // Calls when CLOCK_MONOTONIC reaches `time_us`, at most `accuracy_us` later; once.
  static loop_source timer(sd_event* loop, std::uint64_t time_us, std::uint64_t accuracy_us,
                           callback call);
  // Calls at every arrival of the signal, which is blocked here.
  static loop_source signal(sd_event* loop, int number, callback call);
  // Calls when the child has ended and is still to be reaped, which happens after the callback. The
  // events are its wait status: 0 when it exited with 0.
  static loop_source child(sd_event* loop, pid_t pid, callback call);

  // Lets it go before everything that is not urgent, whatever came first; for what must not wait
  // for busy descriptors.
  void make_urgent() noexcept;
  void set_events(std::uint32_t events) noexcept;
  // Lets a timer call at another time, also one that has called. A timer that has come, but whose
  // call still waits for its turn, loses its turn: set a time only when it is another one.
  void set_time(std::uint64_t time_us) noexcept;

 private:
  struct state;
  explicit loop_source(std::shared_ptr<state> made) noexcept : state_(std::move(made)) {}
  static loop_source added(std::shared_ptr<state> made, int result);
  void end() noexcept;

  std::shared_ptr<state> state_;
};

}  // namespace ot
