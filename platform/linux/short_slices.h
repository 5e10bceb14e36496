// Asks the scheduler to let this thread, and those it starts, run soon after they were woken, for
// short whiles at a time (Linux 6.12 and later; earlier ones ignore it). The thread's priority and
// its share of the processors stay as they are; it only waits less behind others that have work for
// long. For who sleeps until something happens that somebody wants to know at once.
#pragma once

#include <sys/syscall.h>
#include <unistd.h>

#include <cstdint>

namespace ot {

// `slice_us`: 100 is the least; who wakes others takes less than they do, so that it can wake them
// all before one of them runs in its place.
inline void ask_for_short_slices(std::uint64_t slice_us) noexcept {
  struct attributes {  // the kernel's struct sched_attr, as it was first
    std::uint32_t size;
    std::uint32_t policy;
    std::uint64_t flags;
    std::int32_t nice;
    std::uint32_t priority;
    std::uint64_t runtime;
    std::uint64_t deadline;
    std::uint64_t period;
  };
  constexpr std::uint32_t usual_policy = 0;  // SCHED_OTHER
  attributes mine{};
  if (syscall(SYS_sched_getattr, 0, &mine, sizeof mine, 0) == 0 && mine.policy == usual_policy) {
    mine.size = sizeof mine;
    mine.runtime = slice_us * 1000;
    syscall(SYS_sched_setattr, 0, &mine, 0);
  }
}

}  // namespace ot
