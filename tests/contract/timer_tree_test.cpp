// Managed timers: order, restart, stop, what is left, and the one event for all of them.
#include "platform/timer_tree.h"

#include <vector>

#include "tests/contract/contract_test.h"

namespace ot::contract {
namespace {

using namespace std::chrono_literals;

constexpr int code = 128;
constexpr std::uint32_t ms = 1'000'000;

class timer_tree_contract : public contract_test {
 protected:
  void SetUp() override {
    contract_test::SetUp();
    ASSERT_EQ(evm_async_attach(manager(), code, drain, this), code);
    tree_ = wtm_timer_tree_new({manager(), code}, 0);
    ASSERT_NE(tree_, nullptr);
    parent_ = wtm_timer_parent_new(tree_, 0);
    ASSERT_NE(parent_, nullptr);
  }
  void TearDown() override {
    wtm_timer_tree_free(tree_);
    contract_test::TearDown();
  }

  // A leaf whose type is its number in the log of expiries.
  wtm_leaf* leaf(std::uint16_t type) {
    wtm_leaf* made = wtm_timer_leaf_new(tree_, parent_, type, nullptr);
    EXPECT_NE(made, nullptr);
    return made;
  }

  static void drain(void* argument) {
    auto* self = static_cast<timer_tree_contract*>(argument);
    ++self->events_;
    while (self->draining_ && wtm_timer_tree_expired(self->tree_)) {
      wtm_leaf* expired = wtm_timer_tree_first_expired(self->tree_);
      wtm_timer_leaf_stop(expired);
      self->log_.push_back(wtm_timer_leaf_get_type(expired));
    }
  }

  bool run_until_expiries(std::size_t count) {
    return run_until([this, count] { return log_.size() >= count; });
  }

  wtm_tree* tree_ = nullptr;
  wtm_parent* parent_ = nullptr;
  bool draining_ = true;
  int events_ = 0;
  std::vector<std::uint16_t> log_;
};

TEST_F(timer_tree_contract, leaves_expire_in_the_order_they_are_due) {
  ASSERT_EQ(wtm_timer_leaf_start(leaf(1), 0, 900 * ms), 0);
  ASSERT_EQ(wtm_timer_leaf_start(leaf(2), 0, 50 * ms), 0);
  ASSERT_EQ(wtm_timer_leaf_start(leaf(3), 0, 400 * ms), 0);
  EXPECT_TRUE(run_until_expiries(3));
  EXPECT_EQ(log_, (std::vector<std::uint16_t>{2, 3, 1}));
}

TEST_F(timer_tree_contract, a_leaf_does_not_expire_early_and_only_once) {
  ASSERT_EQ(wtm_timer_leaf_start(leaf(1), 0, 900 * ms), 0);
  let_pass(manager(), 100ms);
  EXPECT_TRUE(log_.empty());
  EXPECT_TRUE(run_until_expiries(1));
  let_pass(manager(), 50ms);
  EXPECT_EQ(log_.size(), 1u);
  EXPECT_EQ(events_, 1);
}

TEST_F(timer_tree_contract, starting_a_running_leaf_starts_it_anew) {
  wtm_leaf* moved = leaf(1);
  ASSERT_EQ(wtm_timer_leaf_start(moved, 0, 10 * ms), 0);
  ASSERT_EQ(wtm_timer_leaf_start(leaf(2), 0, 60 * ms), 0);
  ASSERT_EQ(wtm_timer_leaf_start(moved, 0, 160 * ms), 0);
  EXPECT_TRUE(run_until_expiries(2));
  EXPECT_EQ(log_, (std::vector<std::uint16_t>{2, 1}));
}

TEST_F(timer_tree_contract, an_earlier_start_moves_a_leaf_to_the_front) {
  wtm_leaf* moved = leaf(1);
  ASSERT_EQ(wtm_timer_leaf_start(moved, 3600, 0), 0);
  ASSERT_EQ(wtm_timer_leaf_start(leaf(2), 0, 600 * ms), 0);
  ASSERT_EQ(wtm_timer_leaf_start(moved, 0, 10 * ms), 0);
  EXPECT_TRUE(run_until_expiries(2));
  EXPECT_EQ(log_, (std::vector<std::uint16_t>{1, 2}));
}

TEST_F(timer_tree_contract, a_stopped_leaf_does_not_expire) {
  wtm_leaf* stopped = leaf(1);
  ASSERT_EQ(wtm_timer_leaf_start(stopped, 0, 20 * ms), 0);
  ASSERT_EQ(wtm_timer_leaf_start(leaf(2), 0, 20 * ms), 0);
  wtm_timer_leaf_stop(stopped);
  EXPECT_FALSE(wtm_timer_leaf_running(stopped));
  EXPECT_TRUE(run_until_expiries(1));
  EXPECT_EQ(log_, (std::vector<std::uint16_t>{2}));
}

TEST_F(timer_tree_contract, stopping_takes_an_expired_leaf_off_the_expired_ones) {
  draining_ = false;
  wtm_leaf* expired = leaf(1);
  ASSERT_EQ(wtm_timer_leaf_start(expired, 0, 0), 0);
  ASSERT_TRUE(run_until([this] { return events_ > 0; }));
  EXPECT_TRUE(wtm_timer_tree_expired(tree_));
  EXPECT_TRUE(wtm_timer_leaf_running(expired));
  EXPECT_EQ(wtm_timer_leaf_remaining(expired), 0u);
  wtm_timer_leaf_stop(expired);
  EXPECT_FALSE(wtm_timer_tree_expired(tree_));
  EXPECT_EQ(wtm_timer_tree_first_expired(tree_), nullptr);
  EXPECT_FALSE(wtm_timer_leaf_running(expired));
}

TEST_F(timer_tree_contract, a_zero_delay_expires_at_once_but_through_the_loop) {
  ASSERT_EQ(wtm_timer_leaf_start(leaf(1), 0, 0), 0);
  EXPECT_TRUE(wtm_timer_tree_expired(tree_));
  EXPECT_TRUE(log_.empty());
  EXPECT_TRUE(run_until_expiries(1));
}

TEST_F(timer_tree_contract, leaves_due_together_expire_in_the_order_of_their_starts) {
  draining_ = false;
  wtm_leaf* first = leaf(2);
  wtm_leaf* second = leaf(1);
  ASSERT_EQ(wtm_timer_leaf_start(second, 0, 0), 0);
  ASSERT_EQ(wtm_timer_leaf_start(first, 0, 0), 0);
  EXPECT_EQ(wtm_timer_tree_first_expired(tree_), second);
  ASSERT_EQ(wtm_timer_leaf_start(second, 3600, 0), 0);
  EXPECT_EQ(wtm_timer_tree_first_expired(tree_), first);
}

TEST_F(timer_tree_contract, remaining_is_in_whole_seconds_rounded_up) {
  wtm_leaf* running = leaf(1);
  EXPECT_EQ(wtm_timer_leaf_remaining(running), 0u);
  ASSERT_EQ(wtm_timer_leaf_start(running, 100, 0), 0);
  let_pass(manager(), 10ms);
  EXPECT_EQ(wtm_timer_leaf_remaining(running), 100u);
  ASSERT_EQ(wtm_timer_leaf_start(running, 1, 990 * ms), 0);
  let_pass(manager(), 10ms);
  EXPECT_EQ(wtm_timer_leaf_remaining(running), 2u);
  wtm_timer_leaf_stop(running);
  EXPECT_EQ(wtm_timer_leaf_remaining(running), 0u);
}

TEST_F(timer_tree_contract, remaining_milliseconds_are_rounded_up) {
  wtm_leaf* running = leaf(1);
  EXPECT_EQ(wtm_timer_leaf_remaining_ms(running), 0u);
  ASSERT_EQ(wtm_timer_leaf_start(running, 100, 0), 0);
  EXPECT_GT(wtm_timer_leaf_remaining_ms(running), 90'000u);
  let_pass(manager(), 10ms);
  EXPECT_LE(wtm_timer_leaf_remaining_ms(running), 99'990u);
  wtm_timer_leaf_stop(running);
  EXPECT_EQ(wtm_timer_leaf_remaining_ms(running), 0u);
}

TEST_F(timer_tree_contract, the_owner_may_restart_the_leaf_that_expired) {
  draining_ = false;
  wtm_leaf* poll = leaf(1);
  ASSERT_EQ(wtm_timer_leaf_start(poll, 0, 5 * ms), 0);
  for (int round = 1; round <= 3; ++round) {
    ASSERT_TRUE(run_until([&] { return events_ >= round; }));
    ASSERT_EQ(wtm_timer_tree_first_expired(tree_), poll);
    ASSERT_EQ(wtm_timer_leaf_start(poll, 0, 300 * ms), 0);
    ASSERT_FALSE(wtm_timer_tree_expired(tree_));
  }
}

TEST_F(timer_tree_contract, context_and_mark_are_the_owners) {
  int context = 0;
  wtm_leaf* made = wtm_timer_leaf_new(tree_, parent_, 3, &context);
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(wtm_timer_leaf_get_type(made), 3);
  EXPECT_EQ(wtm_timer_leaf_get_context(made), &context);
  wtm_timer_leaf_set_context(made, nullptr);
  EXPECT_EQ(wtm_timer_leaf_get_context(made), nullptr);
  EXPECT_FALSE(wtm_timer_leaf_get_mark(made));
  wtm_timer_leaf_set_mark(made, true);
  EXPECT_TRUE(wtm_timer_leaf_get_mark(made));
  EXPECT_FALSE(wtm_timer_leaf_running(made));
}

TEST_F(timer_tree_contract, a_freed_leaf_is_gone_from_the_tree) {
  wtm_leaf* freed = leaf(1);
  ASSERT_EQ(wtm_timer_leaf_start(freed, 0, 0), 0);
  ASSERT_EQ(wtm_timer_leaf_start(leaf(2), 0, 300 * ms), 0);
  wtm_timer_leaf_free(freed);
  EXPECT_FALSE(wtm_timer_tree_expired(tree_));
  EXPECT_TRUE(run_until_expiries(1));
  EXPECT_EQ(log_, (std::vector<std::uint16_t>{2}));
}

TEST_F(timer_tree_contract, leaves_of_an_aligned_group_share_expiries) {
  wtm_timer_parent_align(parent_, 500 * ms);
  for (std::uint16_t type = 1; type <= 5; ++type) {
    ASSERT_EQ(wtm_timer_leaf_start(leaf(type), 1, (99 + type) * ms), 0);
  }
  let_pass(manager(), 100ms);
  EXPECT_TRUE(log_.empty());
  EXPECT_TRUE(run_until_expiries(5));
  EXPECT_LE(events_, 2) << "more only when a step begins between the five";
}

}  // namespace
}  // namespace ot::contract
