// The fault injection itself: what other tests rely on when they say "the k-th allocation fails".
#include "platform/memory/alloc_faults.h"

#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <thread>

namespace ot {
namespace {

// A call the optimiser cannot fold away.
std::unique_ptr<int> try_allocate() {
  static int* volatile sink;
  sink = new (std::nothrow) int{1};
  return std::unique_ptr<int>{sink};
}

TEST(alloc_faults, fails_only_the_kth_allocation) {
  alloc_faults faults{1};
  const auto first = try_allocate();
  const auto second = try_allocate();
  const auto third = try_allocate();
  EXPECT_NE(first, nullptr);
  EXPECT_EQ(second, nullptr);
  EXPECT_NE(third, nullptr);
  EXPECT_EQ(faults.count(), 3u);
  EXPECT_TRUE(faults.hit());
}

TEST(alloc_faults, onward_fails_everything_from_the_kth) {
  bool results[4] = {};
  {
    alloc_faults faults{2, alloc_fault_mode::onward};
    for (bool& result : results) {
      result = try_allocate() != nullptr;
    }
  }
  EXPECT_TRUE(results[0]);
  EXPECT_TRUE(results[1]);
  EXPECT_FALSE(results[2]);
  EXPECT_FALSE(results[3]);
}

TEST(alloc_faults, the_throwing_forms_throw) {
  static int* volatile sink;
  bool thrown = false;
  {
    alloc_faults faults{0};
    try {
      sink = new int[7];
      delete[] sink;
    } catch (const std::bad_alloc&) {
      thrown = true;
    }
  }
  EXPECT_TRUE(thrown);
}

TEST(alloc_faults, over_aligned_blocks_fail_and_are_aligned) {
  struct alignas(64) line {
    char bytes[64];
  };
  static line* volatile sink;
  sink = new (std::nothrow) line;
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(sink) % 64, 0u);
  delete sink;
  {
    alloc_faults faults{0};
    sink = new (std::nothrow) line;
  }
  EXPECT_EQ(sink, nullptr);
}

TEST(alloc_faults, a_pause_hides_allocations_and_a_callback_lifts_it) {
  alloc_faults faults{1};
  const auto first = try_allocate();
  std::unique_ptr<int> platform;
  std::unique_ptr<int> callback;
  std::unique_ptr<int> platform_again;
  {
    alloc_faults_paused pause;
    platform = try_allocate();
    {
      alloc_faults_resumed resume;
      callback = try_allocate();
    }
    platform_again = try_allocate();
  }
  EXPECT_NE(platform, nullptr);
  EXPECT_EQ(callback, nullptr);
  EXPECT_NE(platform_again, nullptr);
  EXPECT_EQ(faults.count(), 2u);
}

TEST(alloc_faults, other_threads_are_not_hit) {
  bool other = false;
  std::thread thread;
  {
    alloc_faults faults{0, alloc_fault_mode::onward};
    {
      alloc_faults_paused pause;
      thread = std::thread{[&other] { other = try_allocate() != nullptr; }};
    }
    thread.join();
    EXPECT_FALSE(faults.hit());
  }
  EXPECT_TRUE(other);
}

TEST(alloc_faults, every_allocation_of_an_operation_is_failed_once) {
  int done = 0;
  const auto hits = for_each_failing_allocation(
      [&done] {
        const auto a = try_allocate();
        const auto b = a ? try_allocate() : nullptr;
        const auto c = b ? try_allocate() : nullptr;
        done = c ? 3 : b ? 2 : a ? 1 : 0;
      },
      [&done](std::uint64_t k, bool hit) {
        EXPECT_EQ(hit, k < 3);
        EXPECT_EQ(done, static_cast<int>(k));
      });
  EXPECT_EQ(hits, 3u);
}

TEST(alloc_faults, live_allocations_come_back_to_where_they_were) {
  const live_allocations before = count_live_allocations();
  {
    static char* volatile sink;
    sink = new char[1000];
    const std::unique_ptr<char[]> block{sink};
    const live_allocations during = count_live_allocations();
    EXPECT_EQ(during.count, before.count + 1);
    EXPECT_GE(during.bytes, before.bytes + 1000);
  }
  const live_allocations after = count_live_allocations();
  EXPECT_EQ(after.count, before.count);
  EXPECT_EQ(after.bytes, before.bytes);
}

}  // namespace
}  // namespace ot
