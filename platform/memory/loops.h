// The loops and the virtual time of the in-memory router, for the files of this folder. Time stands
// still until a test lets it pass.
#pragma once

#include <cstdint>
#include <functional>

#include "platform/evm.h"

namespace ot {

// Has `work` run as one handler of the manager's loop, behind what is pending. Nothing happens for
// a manager that has been destroyed. Any thread.
void loop_post(evm* manager, std::function<void()> work) noexcept;

// The calling thread is the one that runs this loop; a test waits for it from now on.
void loop_runs_here(evm* manager) noexcept;

// Drops the manager's connections; their open routines are not called any more.
void connections_end(evm* manager) noexcept;

// Something that a test may be waiting for has happened in this thread; it looks again.
void note_change() noexcept;

// One instant at which something has to happen, on the test's thread. Registered for its lifetime.
class virtual_alarm {
 public:
  explicit virtual_alarm(std::function<void()> fire);
  ~virtual_alarm();
  virtual_alarm(const virtual_alarm&) = delete;
  virtual_alarm& operator=(const virtual_alarm&) = delete;

  // 0: never.
  void set(std::uint64_t due_ns) noexcept { due_ns_ = due_ns; }
  [[nodiscard]] std::uint64_t due_ns() const noexcept { return due_ns_; }
  // Disarms, then calls `fire`.
  void go_off();

 private:
  std::uint64_t due_ns_ = 0;
  std::function<void()> fire_;
};

// Lets every alarm that is due now go off, the earliest first.
void fire_due_alarms();

}  // namespace ot
