// Out of memory on demand: the program's operator new and delete, with faults injected per thread
// and with a count of what is live. Linked into test programs only.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ot {

enum class alloc_fault_mode {
  once,   // only the k-th allocation fails
  onward  // the k-th and every later one fail
};

// While it lives, the calling thread's k-th allocation from now on (0 = the next) fails: operator
// new throws bad_alloc, its nothrow form returns null. Instances nest; the inner one counts alone.
class alloc_faults {
 public:
  explicit alloc_faults(std::uint64_t k, alloc_fault_mode mode = alloc_fault_mode::once) noexcept;
  ~alloc_faults();
  alloc_faults(const alloc_faults&) = delete;
  alloc_faults& operator=(const alloc_faults&) = delete;

  // Allocations of this thread seen so far, the failed ones included; the paused ones not.
  [[nodiscard]] std::uint64_t count() const noexcept { return count_; }
  // Whether any failed.
  [[nodiscard]] bool hit() const noexcept { return hit_; }

  // For operator new: counts an allocation; true when it has to fail.
  bool next_fails() noexcept;

 private:
  std::uint64_t k_;
  alloc_fault_mode mode_;
  std::uint64_t count_ = 0;
  bool hit_ = false;
  alloc_faults* outer_;
};

// For the platform's own code, which is not what a fault is aimed at: nothing is counted or fails
// on this thread for the scope.
class alloc_faults_paused {
 public:
  alloc_faults_paused() noexcept;
  ~alloc_faults_paused();
  alloc_faults_paused(const alloc_faults_paused&) = delete;
  alloc_faults_paused& operator=(const alloc_faults_paused&) = delete;

 private:
  bool before_;
};

// For the platform's calls back into the service: lifts a pause for the scope.
class alloc_faults_resumed {
 public:
  alloc_faults_resumed() noexcept;
  ~alloc_faults_resumed();
  alloc_faults_resumed(const alloc_faults_resumed&) = delete;
  alloc_faults_resumed& operator=(const alloc_faults_resumed&) = delete;

 private:
  bool before_;
};

// What the whole program holds from operator new at this moment.
struct live_allocations {
  std::int64_t count = 0;
  std::int64_t bytes = 0;  // as the allocator rounded them
};
live_allocations count_live_allocations() noexcept;

// Runs `operation()` with its k-th allocation failing, for k = 0, 1, 2 ..., and after each run
// `check(k, hit)` with nothing failing, until a run was not hit or `limit` runs are over. Returns
// how many runs were hit; `limit` means that there was no end. Prepare the next run in `check`.
template <typename Operation, typename Check>
std::uint64_t for_each_failing_allocation(Operation&& operation, Check&& check,
                                          std::uint64_t limit = 10'000) {
  for (std::uint64_t k = 0; k < limit; ++k) {
    bool hit = false;
    {
      alloc_faults faults{k};
      operation();
      hit = faults.hit();
    }
    check(k, hit);
    if (!hit) {
      return k;
    }
  }
  return limit;
}

}  // namespace ot
