// Times that a busy machine does not make longer: a thread beside the test wakes every millisecond,
// and what it is late at the most counts for what the test had to wait for a processor.
#pragma once

#include <atomic>
#include <chrono>
#include <thread>

namespace ot::testing {

class stopwatch {
 public:
  using clock = std::chrono::steady_clock;

  stopwatch() : watcher_([this] { watch(); }) {}
  ~stopwatch() {
    over_ = true;
    watcher_.join();
  }
  stopwatch(const stopwatch&) = delete;
  stopwatch& operator=(const stopwatch&) = delete;

  // Since it was made, but for what the machine was late: twice, since something waits for the test
  // and the test for something.
  [[nodiscard]] clock::duration taken() const { return clock::now() - began_ - 2 * late_.load(); }

 private:
  void watch() {
    while (!over_) {
      const auto due = clock::now() + std::chrono::milliseconds{1};
      std::this_thread::sleep_until(due);
      if (const auto late = clock::now() - due; late > late_.load()) {
        late_ = late;
      }
    }
  }

  clock::time_point began_ = clock::now();
  std::atomic<clock::duration> late_{clock::duration::zero()};
  std::atomic<bool> over_ = false;
  std::thread watcher_;  // the last, since it uses the others
};

}  // namespace ot::testing
