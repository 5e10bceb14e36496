// Times that a busy machine does not make longer: beside the test a thread on each processor wakes
// every millisecond, and what one is late at the most counts for what the test had to wait for a
// processor. The kernel may keep one of them for a quarter of a second, and not the others.
#pragma once

#include <sched.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

namespace ot::testing {

class stopwatch {
 public:
  using clock = std::chrono::steady_clock;

  stopwatch() {
    cpu_set_t processors;
    sched_getaffinity(0, sizeof processors, &processors);
    for (int processor = 0; processor < CPU_SETSIZE; ++processor) {
      if (CPU_ISSET(processor, &processors)) {
        watchers_.emplace_back([this, processor] { watch(processor); });
      }
    }
  }
  ~stopwatch() {
    over_ = true;
    for (std::thread& watcher : watchers_) {
      watcher.join();
    }
  }
  stopwatch(const stopwatch&) = delete;
  stopwatch& operator=(const stopwatch&) = delete;

  // Since it was made, but for what the machine was late: twice, since something waits for the test
  // and the test for something.
  [[nodiscard]] clock::duration taken() const { return clock::now() - began_ - 2 * late_.load(); }

 private:
  void watch(int processor) {
    cpu_set_t its;
    CPU_ZERO(&its);
    CPU_SET(processor, &its);
    sched_setaffinity(0, sizeof its, &its);
    while (!over_) {
      const auto due = clock::now() + std::chrono::milliseconds{1};
      std::this_thread::sleep_until(due);
      const auto late = clock::now() - due;
      for (auto most = late_.load(); late > most && !late_.compare_exchange_weak(most, late);) {
      }
    }
  }

  clock::time_point began_ = clock::now();
  std::atomic<clock::duration> late_{clock::duration::zero()};
  std::atomic<bool> over_ = false;
  std::vector<std::thread> watchers_;  // the last, since they use the others
};

}  // namespace ot::testing
