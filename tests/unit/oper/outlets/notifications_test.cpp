// The notification batch: when it leaves, what its entries hold, and what happens when it cannot.
#include "oper/outlets/notifications.h"

#include <chrono>

#include "core/debug.h"
#include "platform/ledger_status.h"
#include "platform/memory/alloc_faults.h"
#include "platform/memory/controls.h"
#include "platform/memory/ledger_controls.h"
#include "state/timers.h"
#include "tests/unit/service_fixture.h"

namespace ot::test {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

class notifications : public running_service {
 protected:
  static void queue(std::uint32_t count) {
    for (std::uint32_t i = 0; i < count; ++i) {
      EXPECT_EQ(OT_dpv_queue_notification("t", i, 0), 0);
    }
  }
  // The sizes of the batches sent since the last call.
  static std::vector<std::size_t> batch_sizes() {
    std::vector<std::size_t> sizes;
    for (const auto& batch : ledger_control_take_notifications()) {
      sizes.push_back(batch.size());
    }
    return sizes;
  }
  static void only_notification_traces() {
    ot_debug[ot_debug_notification].enabled = 1;
    field::take_traces();
  }
};

TEST_F(notifications, a_set_carries_the_new_value_and_a_delete_the_old_one) {
  EXPECT_EQ(OT_dpv_queue_notification("a", 2, 0), 0);
  EXPECT_EQ(OT_dpv_queue_notification("b", 0, 1), 0);
  EXPECT_EQ(OT_dpv_dispatch_notifications(), 0);
  const auto batches = ledger_control_take_notifications();
  ASSERT_EQ(batches.size(), 1u);
  ASSERT_EQ(batches[0].size(), 2u);
  EXPECT_EQ(batches[0][0].path, "/oper/gl/object-tracking/a");
  EXPECT_EQ(batches[0][0].kind, 2u);
  EXPECT_EQ(batches[0][0].value, 2u);
  EXPECT_EQ(batches[0][0].sequence, 1u);
  EXPECT_EQ(batches[0][1].path, "/oper/gl/object-tracking/b");
  EXPECT_EQ(batches[0][1].kind, 4u);
  EXPECT_EQ(batches[0][1].value, 0u);
  EXPECT_EQ(batches[0][1].sequence, 2u);
}

TEST_F(notifications, an_entry_says_of_which_of_its_values_it_has_and_how_long_that_is) {
  EXPECT_EQ(OT_dpv_queue_notification("a", 2, 0), 0);
  EXPECT_EQ(OT_dpv_queue_notification("b", 0, 1), 0);
  EXPECT_EQ(OT_dpv_dispatch_notifications(), 0);
  const auto batches = ledger_control_take_notifications();
  ASSERT_EQ(batches.size(), 1u);
  ASSERT_EQ(batches[0].size(), 2u);
  const ledger_dpv_notification& set = batches[0][0].entry;
  EXPECT_EQ(set.valid, 1u);
  EXPECT_NE(set.new_value, nullptr);
  EXPECT_EQ(set.new_value_length, 4u);
  EXPECT_EQ(set.old_value, nullptr);
  EXPECT_EQ(set.old_value_length, 0u);
  const ledger_dpv_notification& deleted = batches[0][1].entry;
  EXPECT_EQ(deleted.valid, 1u);
  EXPECT_EQ(deleted.new_value, nullptr);
  EXPECT_EQ(deleted.new_value_length, 0u);
  EXPECT_NE(deleted.old_value, nullptr);
  EXPECT_EQ(deleted.old_value_length, 4u);
}

TEST_F(notifications, another_mode_is_refused_and_queues_nothing) {
  EXPECT_EQ(OT_dpv_queue_notification("t", 1, 2), invalid_argument);
  EXPECT_EQ(OT_dpv_queue_notification("t", 1, -1), invalid_argument);
  field::advance(1s);
  EXPECT_THAT(batch_sizes(), IsEmpty());
}

TEST_F(notifications, the_first_entry_arms_the_timer_before_its_mode_is_looked_at) {
  ASSERT_FALSE(wtm_timer_leaf_running(tracks_nfn_timer));
  const auto before = count_live_allocations().count;
  EXPECT_EQ(OT_dpv_queue_notification("t", 1, 2), invalid_argument);
  EXPECT_TRUE(wtm_timer_leaf_running(tracks_nfn_timer));
  EXPECT_EQ(count_live_allocations().count, before);
}

TEST_F(notifications, a_batch_leaves_100_ms_after_its_first_entry) {
  queue(1);
  field::advance(60ms);
  queue(2);
  field::advance(39ms);
  EXPECT_THAT(batch_sizes(), IsEmpty());
  field::advance(1ms);
  EXPECT_THAT(batch_sizes(), ElementsAre(3));
  field::advance(1s);
  EXPECT_THAT(batch_sizes(), IsEmpty());
}

TEST_F(notifications, the_512th_entry_sends_at_once) {
  queue(notification_batch_size - 1);
  EXPECT_THAT(batch_sizes(), IsEmpty());
  queue(1);
  EXPECT_THAT(batch_sizes(), ElementsAre(512));
}

TEST_F(notifications, the_513th_starts_a_new_batch_and_the_timer_anew) {
  queue(notification_batch_size);
  EXPECT_THAT(batch_sizes(), ElementsAre(512));
  field::advance(70ms);
  EXPECT_EQ(OT_dpv_queue_notification("next", 1, 0), 0);
  field::advance(99ms);
  EXPECT_THAT(batch_sizes(), IsEmpty());
  field::advance(1ms);
  const auto batches = ledger_control_take_notifications();
  ASSERT_EQ(batches.size(), 1u);
  ASSERT_EQ(batches[0].size(), 1u);
  EXPECT_EQ(batches[0][0].path, "/oper/gl/object-tracking/next");
  EXPECT_EQ(batches[0][0].sequence, 1u);
}

TEST_F(notifications, entries_keep_their_order_and_count_from_1) {
  for (std::uint32_t i = 0; i < 100; ++i) {
    OT_dpv_queue_notification(("t" + std::to_string(i)).c_str(), i, 0);
  }
  OT_dpv_dispatch_notifications();
  const auto batches = ledger_control_take_notifications();
  ASSERT_EQ(batches.size(), 1u);
  for (std::uint32_t i = 0; i < 100; ++i) {
    EXPECT_EQ(batches[0][i].path, "/oper/gl/object-tracking/t" + std::to_string(i));
    EXPECT_EQ(batches[0][i].value, i);
    EXPECT_EQ(batches[0][i].sequence, i + 1);
  }
}

TEST_F(notifications, a_path_holds_127_characters_of_the_name) {
  const std::string name = "n" + std::string(150, 'x');
  const std::string fits(127, 'y');
  OT_dpv_queue_notification(name.c_str(), 1, 0);
  OT_dpv_queue_notification(fits.c_str(), 1, 0);
  OT_dpv_dispatch_notifications();
  EXPECT_THAT(take_notifications(), ElementsAre(name.substr(0, 127) + " set 1", fits + " set 1"));
}

TEST_F(notifications, an_empty_batch_calls_nothing) {
  ledger_control_fail_next(ledger_operation::notify, ledger_unreachable);
  EXPECT_EQ(OT_dpv_dispatch_notifications(), 0);
  queue(1);
  EXPECT_EQ(OT_dpv_dispatch_notifications(), ledger_unreachable);  // the failure was still due
}

TEST_F(notifications, a_batch_that_cannot_be_sent_is_freed) {
  queue(3);
  ledger_control_fail_next(ledger_operation::notify, ledger_unreachable);
  EXPECT_EQ(OT_dpv_dispatch_notifications(), ledger_unreachable);
  EXPECT_EQ(OT_dpv_dispatch_notifications(), 0);
  EXPECT_THAT(batch_sizes(), IsEmpty());
}

TEST_F(notifications, a_full_batch_that_cannot_be_sent_is_traced) {
  queue(notification_batch_size - 1);
  ledger_control_fail_next(ledger_operation::notify, ledger_unreachable);
  ot_debug[ot_debug_error].enabled = 1;
  EXPECT_EQ(OT_dpv_queue_notification("t", 1, 0), 0);
  EXPECT_THAT(field::take_traces(),
              ElementsAre("(OT_dpv_queue_notification) :Failed to send notification batch"));
  EXPECT_EQ(OT_dpv_dispatch_notifications(), 0);
  EXPECT_THAT(batch_sizes(), IsEmpty());
}

TEST_F(notifications, queueing_and_sending_are_traced) {
  only_notification_traces();
  OT_dpv_queue_notification("a", 1, 0);
  OT_dpv_queue_notification("b", 0, 1);
  OT_dpv_dispatch_notifications();
  OT_dpv_dispatch_notifications();
  EXPECT_THAT(field::take_traces(),
              ElementsAre("OT DPV - Notification 1 queued (a)",
                          "OT DPV - Notification 2 queued (b)", "OT DPV - Notifications Sent 2"));
}

TEST_F(notifications, without_memory_a_change_is_dropped_and_nothing_leaks) {
  const auto before = count_live_allocations().count;
  int status = -1;
  const auto hits = for_each_failing_allocation(
      [&] { status = OT_dpv_queue_notification("t", 1, 0); },
      [&](std::uint64_t, bool hit) {
        EXPECT_EQ(status, 0);
        EXPECT_EQ(count_live_allocations().count, before + (hit ? 0 : 2));
      });
  EXPECT_EQ(hits, 2u);  // the value and the path
  EXPECT_EQ(OT_dpv_dispatch_notifications(), 0);
  EXPECT_THAT(batch_sizes(), ElementsAre(1));
}

TEST_F(notifications, many_batches_leave_memory_as_it_was) {
  queue(notification_batch_size);
  batch_sizes();
  const auto before = count_live_allocations();
  for (int i = 0; i < 20; ++i) {
    queue(notification_batch_size);
    EXPECT_THAT(batch_sizes(), ElementsAre(512));
  }
  EXPECT_EQ(count_live_allocations().count, before.count);
}

TEST_F(notifications, dropping_frees_without_sending) {
  const auto before = count_live_allocations().count;
  queue(5);
  ot_notifications_drop();
  EXPECT_EQ(count_live_allocations().count, before);
  field::advance(1s);
  EXPECT_THAT(batch_sizes(), IsEmpty());
}

TEST_F(notifications, a_follower_of_the_states_is_notified) {
  ASSERT_EQ(commit(interface_track("t", "eth0")), 0);
  field::interface_added("eth0");
  field::advance(100ms);
  EXPECT_THAT(take_notifications(), ElementsAre("t set 0", "t set 1"));
}

}  // namespace
}  // namespace ot::test
