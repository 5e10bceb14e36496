// The timer tree on virtual time: what expires, when and in which order.
#include "platform/timer_tree.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <random>
#include <tuple>
#include <utility>
#include <vector>

#include "platform/event_manager.h"
#include "platform/memory/alloc_faults.h"
#include "platform/memory/controls.h"

namespace ot {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr int expiry_code = 128;

class timer_tree : public ::testing::Test {
 protected:
  void SetUp() override {
    field::reset();
    ASSERT_EQ(evm_create(&manager_), 0);
    ASSERT_EQ(evm_async_attach(manager_, expiry_code, &timer_tree::on_expiry, this), expiry_code);
    evm_sigevent event;
    ASSERT_EQ(evm_init_sigevent(manager_, expiry_code, 0, 0, &event), 0);
    tree_ = wtm_timer_tree_new(event, 0);
    ASSERT_NE(tree_, nullptr);
    parent_ = wtm_timer_parent_new(tree_, 0);
    ASSERT_NE(parent_, nullptr);
  }
  void TearDown() override {
    wtm_timer_tree_free(tree_);
    evm_destroy(manager_);
  }

  wtm_leaf* leaf(std::uint16_t type) {
    wtm_leaf* made = wtm_timer_leaf_new(tree_, parent_, type, nullptr);
    EXPECT_NE(made, nullptr);
    return made;
  }
  wtm_leaf* started(std::uint16_t type, std::chrono::milliseconds delay) {
    wtm_leaf* made = leaf(type);
    start(made, delay);
    return made;
  }
  static void start(wtm_leaf* leaf, std::chrono::milliseconds delay) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(delay);
    EXPECT_EQ(wtm_timer_leaf_start(leaf, static_cast<std::uint32_t>(seconds.count()),
                                   static_cast<std::uint32_t>((delay - seconds) / 1ns)),
              0);
  }
  // The types that expired since the last call.
  std::vector<int> take() { return std::exchange(expired_, {}); }

  bool drain_ = true;
  int raised_ = 0;
  wtm_tree* tree_ = nullptr;
  wtm_parent* parent_ = nullptr;

 private:
  static void on_expiry(void* self) {
    auto* test = static_cast<timer_tree*>(self);
    ++test->raised_;
    while (test->drain_ && wtm_timer_tree_expired(test->tree_)) {
      wtm_leaf* due = wtm_timer_tree_first_expired(test->tree_);
      wtm_timer_leaf_stop(due);
      test->expired_.push_back(wtm_timer_leaf_get_type(due));
    }
  }

  evm* manager_ = nullptr;
  std::vector<int> expired_;
};

TEST_F(timer_tree, expires_at_the_instant_and_not_before) {
  started(1, 20ms);
  field::advance(19'999'999ns);
  EXPECT_THAT(take(), IsEmpty());
  field::advance(1ns);
  EXPECT_THAT(take(), ElementsAre(1));
  field::advance(1h);
  EXPECT_THAT(take(), IsEmpty()) << "an expiry is not repeated";
}

TEST_F(timer_tree, expires_in_the_order_of_the_instants_and_then_of_the_starts) {
  started(3, 30ms);
  started(1, 10ms);
  started(4, 30ms);
  started(2, 10ms);
  field::advance(1s);
  EXPECT_THAT(take(), ElementsAre(1, 2, 3, 4));
}

// Virtual time begins at a whole second.
TEST_F(timer_tree, a_leaf_of_an_aligned_group_is_due_at_the_last_whole_step_and_never_late) {
  wtm_timer_parent_align(parent_, 20'000'000);
  started(1, 60ms);
  field::advance(5ms);
  started(2, 60ms);
  field::advance(14ms);
  started(3, 60ms);
  field::advance(1ms);
  started(4, 60ms);
  field::advance(40ms - 1ns);
  EXPECT_THAT(take(), IsEmpty());
  field::advance(1ns);
  EXPECT_THAT(take(), ElementsAre(1, 2, 3));
  EXPECT_EQ(raised_, 1);
  field::advance(20ms);
  EXPECT_THAT(take(), ElementsAre(4));
}

TEST_F(timer_tree, a_leaf_that_has_no_whole_step_before_it_is_due_on_its_own) {
  wtm_timer_parent_align(parent_, 1'000'000'000);
  field::advance(100ms);
  started(1, 300ms);
  field::advance(300ms - 1ns);
  EXPECT_THAT(take(), IsEmpty());
  field::advance(1ns);
  EXPECT_THAT(take(), ElementsAre(1));
}

TEST_F(timer_tree, a_leaf_that_is_started_again_for_whole_steps_keeps_its_rhythm) {
  wtm_timer_parent_align(parent_, 20'000'000);
  field::advance(7ms);
  wtm_leaf* again = started(1, 100ms);
  field::advance(93ms);
  for (int round = 0; round < 5; ++round) {
    EXPECT_THAT(take(), ElementsAre(1)) << round;
    field::advance(3ms);  // as long as it took to come to it
    start(again, 100ms);
    field::advance(97ms);
  }
}

TEST_F(timer_tree, other_groups_are_not_aligned) {
  wtm_timer_parent_align(parent_, 20'000'000);
  parent_ = wtm_timer_parent_new(tree_, 0);
  ASSERT_NE(parent_, nullptr);
  started(1, 30ms);
  field::advance(30ms - 1ns);
  EXPECT_THAT(take(), IsEmpty());
  field::advance(1ns);
  EXPECT_THAT(take(), ElementsAre(1));
}

TEST_F(timer_tree, a_restart_begins_the_delay_anew) {
  wtm_leaf* again = started(1, 10ms);
  started(2, 12ms);
  field::advance(8ms);
  start(again, 10ms);
  field::advance(4ms);
  EXPECT_THAT(take(), ElementsAre(2));
  field::advance(6ms);
  EXPECT_THAT(take(), ElementsAre(1));
}

TEST_F(timer_tree, a_stopped_leaf_does_not_expire) {
  wtm_leaf* stopped = started(1, 10ms);
  wtm_timer_leaf_stop(stopped);
  wtm_timer_leaf_stop(stopped);
  EXPECT_FALSE(wtm_timer_leaf_running(stopped));
  field::advance(1s);
  EXPECT_EQ(raised_, 0);
}

TEST_F(timer_tree, a_leaf_runs_until_its_expiry_is_drained) {
  drain_ = false;
  wtm_leaf* due = started(1, 10ms);
  field::advance(10ms);
  EXPECT_EQ(raised_, 1) << "the event comes once";
  field::advance(1s);
  EXPECT_EQ(raised_, 1);
  EXPECT_TRUE(wtm_timer_leaf_running(due));
  EXPECT_EQ(wtm_timer_leaf_remaining(due), 0U);
  EXPECT_EQ(wtm_timer_tree_first_expired(tree_), due);
  wtm_timer_leaf_stop(due);
  EXPECT_FALSE(wtm_timer_tree_expired(tree_));
  EXPECT_EQ(wtm_timer_tree_first_expired(tree_), nullptr);
}

TEST_F(timer_tree, an_undrained_leaf_does_not_hide_a_later_one) {
  drain_ = false;
  wtm_leaf* first = started(1, 10ms);
  started(2, 20ms);
  field::advance(15ms);
  wtm_timer_leaf_free(first);
  drain_ = true;
  field::advance(5ms);
  EXPECT_THAT(take(), ElementsAre(2));
}

TEST_F(timer_tree, reports_the_whole_seconds_left_rounded_up) {
  wtm_leaf* one = leaf(1);
  EXPECT_EQ(wtm_timer_leaf_remaining(one), 0U);
  start(one, 10s);
  EXPECT_EQ(wtm_timer_leaf_remaining(one), 10U);
  field::advance(1ns);
  EXPECT_EQ(wtm_timer_leaf_remaining(one), 10U);
  field::advance(9s - 1ns);
  EXPECT_EQ(wtm_timer_leaf_remaining(one), 1U);
  field::advance(1s);
  EXPECT_EQ(wtm_timer_leaf_remaining(one), 0U);
}

TEST_F(timer_tree, the_longest_delay_is_no_overflow) {
  wtm_leaf* far = leaf(1);
  EXPECT_EQ(wtm_timer_leaf_start(far, 0xFFFFFFFF, 999'999'999), 0);
  field::advance(24h);
  EXPECT_THAT(take(), IsEmpty());
  EXPECT_EQ(wtm_timer_leaf_remaining(far), 0xFFFFFFFFU - 24 * 3600 + 1);
}

TEST_F(timer_tree, keeps_type_context_and_mark) {
  int context = 0;
  wtm_leaf* one = leaf(0xFFFF);
  EXPECT_EQ(wtm_timer_leaf_get_type(one), 0xFFFF);
  EXPECT_EQ(wtm_timer_leaf_get_context(one), nullptr);
  wtm_timer_leaf_set_context(one, &context);
  EXPECT_EQ(wtm_timer_leaf_get_context(one), &context);
  EXPECT_FALSE(wtm_timer_leaf_get_mark(one));
  wtm_timer_leaf_set_mark(one, true);
  EXPECT_TRUE(wtm_timer_leaf_get_mark(one));
}

TEST_F(timer_tree, a_leaf_without_memory_is_none_and_changes_nothing) {
  started(1, 10ms);
  std::uint64_t k = 0;
  for (bool hit = true; hit; ++k) {
    std::vector<wtm_leaf*> made(100);
    {
      const alloc_faults faults(k);
      for (wtm_leaf*& one : made) {
        one = wtm_timer_leaf_new(tree_, parent_, 2, nullptr);
      }
      hit = faults.hit();
    }
    EXPECT_EQ(std::count(made.begin(), made.end(), nullptr), hit ? 1 : 0);
    std::for_each(made.begin(), made.end(), wtm_timer_leaf_free);
  }
  EXPECT_GT(k, 100U) << "every leaf allocates";
  field::advance(10ms);
  EXPECT_THAT(take(), ElementsAre(1));
}

TEST_F(timer_tree, starting_needs_no_memory) {
  std::vector<wtm_leaf*> leaves;
  for (std::uint16_t type = 0; type < 1000; ++type) {
    leaves.push_back(leaf(type));
  }
  const alloc_faults none_left(0, alloc_fault_mode::onward);
  for (wtm_leaf* one : leaves) {
    ASSERT_EQ(wtm_timer_leaf_start(one, 1, 0), 0);
  }
  EXPECT_EQ(none_left.count(), 0U);
}

// Thousands of random starts, stops and frees, against what a plain list says must expire.
TEST_F(timer_tree, agrees_with_a_plain_list_under_random_use) {
  struct entry {
    wtm_leaf* leaf;
    std::uint64_t due_ms = 0;  // 0 stopped
    std::uint64_t sequence = 0;
  };
  std::mt19937 random(42);
  std::vector<entry> list;
  for (std::uint16_t type = 0; type < 300; ++type) {
    list.push_back({leaf(type)});
  }
  std::uint64_t now_ms = 0;
  std::uint64_t sequence = 0;
  for (int step = 0; step < 20'000; ++step) {
    entry& chosen = list[random() % list.size()];
    if (random() % 4 != 0) {
      const std::uint64_t delay = 1 + random() % 50;
      start(chosen.leaf, std::chrono::milliseconds(delay));
      chosen.due_ms = now_ms + delay;
      chosen.sequence = ++sequence;
    } else {
      wtm_timer_leaf_stop(chosen.leaf);
      chosen.due_ms = 0;
    }
    if (random() % 16 == 0) {
      now_ms += 3;
      std::vector<entry> due;
      for (entry& one : list) {
        if (one.due_ms != 0 && one.due_ms <= now_ms) {
          due.push_back(one);
          one.due_ms = 0;
        }
      }
      std::sort(due.begin(), due.end(), [](const entry& a, const entry& b) {
        return std::tie(a.due_ms, a.sequence) < std::tie(b.due_ms, b.sequence);
      });
      std::vector<int> expected;
      for (const entry& one : due) {
        expected.push_back(wtm_timer_leaf_get_type(one.leaf));
      }
      field::advance(3ms);
      ASSERT_EQ(take(), expected) << "step " << step;
    }
  }
}

}  // namespace
}  // namespace ot
