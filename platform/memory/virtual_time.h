// Virtual time: it stands still until a test lets it pass. For the files of this folder.
#pragma once

#include <cstdint>
#include <functional>

namespace ot {

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
