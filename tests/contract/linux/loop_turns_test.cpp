// What counts as a turn of the loop.
#include "platform/loop_turns.h"

#include "platform/linux/loop/sd_event.h"
#include "platform/linux/monotonic.h"
#include "tests/contract/contract_test.h"

namespace ot::contract {
namespace {

class loop_turns_of_a_manager : public contract_test {
 protected:
  // Keeps the loop busy for that long.
  static void work_for(std::uint64_t microseconds) {
    const std::uint64_t began = monotonic_us();
    while (monotonic_us() - began < microseconds) {
    }
  }
  void run_one(evm_task task) {
    ASSERT_EQ(evm_post(manager(), task, nullptr), 0);
    ASSERT_EQ(evm_block(manager()), 0);
    ASSERT_EQ(evm_dispatch(manager()), 0);
    // The turn ends before the next wait, which has something to wait for at once.
    ASSERT_EQ(evm_post(
                  manager(), [](void*) {}, nullptr),
              0);
    ASSERT_EQ(evm_block(manager()), 0);
    ASSERT_EQ(evm_dispatch(manager()), 0);
  }
};

TEST_F(loop_turns_of_a_manager, none_yet) {
  EXPECT_EQ(evm_turns(manager()).longest_at, 0);
  EXPECT_EQ(evm_turns(manager()).longest_us, 0U);
  EXPECT_GT(evm_turns(manager()).since, 0);
}

TEST_F(loop_turns_of_a_manager, a_handler_and_what_is_flushed_behind_it) {
  run_one([](void*) { work_for(20'000); });
  const loop_turns first = evm_turns(manager());
  EXPECT_GE(first.longest_us, 20'000U);
  EXPECT_GE(first.longest_at, first.since);
  ASSERT_EQ(evm_add_flush(
                manager(), evm_flush_stage::log, [](void*) { work_for(10'000); }, nullptr),
            0);
  run_one([](void*) { work_for(30'000); });
  EXPECT_GE(evm_turns(manager()).longest_us, 40'000U);
}

TEST_F(loop_turns_of_a_manager, the_start_is_none_of_them) {
  ASSERT_EQ(evm_post(
                manager(), [](void*) {}, nullptr),
            0);
  ASSERT_EQ(evm_block(manager()), 0);
  ASSERT_EQ(evm_dispatch(manager()), 0);
  work_for(1'000'000);
  evm_restart_turns(manager());
  run_one([](void*) {});
  EXPECT_LT(evm_turns(manager()).longest_us, 1'000'000U);
}

}  // namespace
}  // namespace ot::contract
