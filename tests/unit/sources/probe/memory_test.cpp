// Probe tracks while each allocation fails in turn: code 12, nothing half tied, nothing leaked.
#include "config/delays.h"
#include "platform/component_status.h"
#include "platform/memory/ledger_controls.h"
#include "sources/probe/track.h"
#include "tests/unit/failing_runs.h"
#include "tests/unit/sources/probe/fixture.h"

namespace ot::test {
namespace {

using testing::Contains;

class probe_memory : public probe_service {
 protected:
  void begin_again() {
    stop();
    field::reset();
    ledger_control_reset();
    ASSERT_EQ(start(), 0);
    field::probe_result(7, 1);
    trace();
  }
  // The results of the failing runs, each on a service with what `prepare` makes; `check` gets the
  // traces of each.
  template <typename Prepare, typename Operation, typename Check>
  std::vector<int> results_of(Prepare prepare, Operation operation, Check check) {
    return failing_results(
        [&] {
          begin_again();
          prepare();
        },
        operation, [&](std::uint64_t k, int) { check(k, field::take_traces()); });
  }
  std::int64_t held_after_the_end() {
    stop();
    field::reset();
    ledger_control_reset();
    return count_live_allocations().count;
  }
  static bool exists(const char* name) { return hash_db_get_track_item(name) != nullptr; }
};

TEST_F(probe_memory, a_new_track_is_refused_with_12_or_made) {
  const std::string who = "(object_tracking_type_prb_create) : ";
  // The track's entry, the delay's context and leaf, the poll's context and leaf, the node, the
  // operation's entry; then only the notification.
  const std::vector<std::string> reported = {
      who + "hash_db_add_new_item failed- no memory to add item ",
      who + "malloc() failed.",
      who + "malloc() failed.",
      who + "malloc() failed.",
      "(set_ot_shm_poll_timer) timer is NULL",
      who + "malloc failed ",
      who + "insert_track_to_prb_entry failed - Cannot allocate memory",
  };
  const std::vector<int> results =
      results_of([] {}, [] { return create("t"); },
                 [&](std::uint64_t k, const text_lines& traces) {
                   if (k >= reported.size()) {
                     EXPECT_TRUE(polled("t"));
                     return;
                   }
                   EXPECT_THAT(traces, Contains(reported[k])) << k;
                   EXPECT_EQ(exists("t"), k >= 3) << k;
                   EXPECT_EQ(followers(), k == 4 ? text_lines{"t"} : text_lines{}) << k;
                   EXPECT_FALSE(exists("t") && polled("t")) << k;
                 });
  ASSERT_GE(results.size(), reported.size());
  for (std::size_t k = 0; k < results.size(); ++k) {
    // A track without a poll timer is followed all the same.
    EXPECT_EQ(results[k], k < reported.size() && k != 4 ? no_memory : status_ok) << k;
  }
}

TEST_F(probe_memory, a_new_track_that_finds_no_room_costs_every_track) {
  ASSERT_EQ(create("other", 8), 0);
  alloc_faults faults{0};
  EXPECT_EQ(create("t"), no_memory);
  EXPECT_EQ(tracks_table.buckets, nullptr);
  EXPECT_FALSE(exists("other"));
}

TEST_F(probe_memory, an_operation_that_finds_no_room_costs_every_operation) {
  ASSERT_EQ(create("other", 8), 0);
  track_name_node* node = new_track_name_node("t");
  trace();
  {
    alloc_faults faults{0};
    EXPECT_EQ(insert_track_to_prb_entry(node, track_state::up, 7), no_memory);
  }
  delete node;
  EXPECT_EQ(field::take_traces().back(),
            "(insert_track_to_prb_entry) : hash_db_add_new_item failed - no memory to add item - "
            "Cannot allocate memory");
  EXPECT_EQ(prb_table.buckets, nullptr);
  EXPECT_TRUE(exists("other"));
  next_poll();
  EXPECT_TRUE(polled("other"));
}

TEST_F(probe_memory, a_present_track_is_refused_with_12_or_tied) {
  const std::vector<int> results =
      results_of([] { ASSERT_EQ(object_tracking_set_create_track_delay("t", 1, 1, true), 0); },
                 [] { return create("t"); },
                 [&](std::uint64_t k, const text_lines&) {
                   EXPECT_NE(track("t").delay_timer, nullptr) << k;
                   EXPECT_NE(get_timer_ctx(track("t").delay_timer), nullptr) << k;
                 });
  // The delay's leaf takes its context over; the poll's leaf may be missing.
  const std::vector<int> wanted = {no_memory, no_memory, status_ok, no_memory, no_memory};
  ASSERT_GE(results.size(), wanted.size());
  EXPECT_EQ(std::vector<int>(results.begin(), results.begin() + 5), wanted);
}

TEST_F(probe_memory, a_running_delay_survives_a_track_that_cannot_be_taken_over) {
  const auto prepare = [this] {
    ASSERT_EQ(object_tracking_set_create_track_delay("t", 0, 30, true), 0);
    ASSERT_EQ(create("t"), 0);
    field::probe_result(7, 2);
    next_poll();
    ASSERT_TRUE(wtm_timer_leaf_running(track("t").delay_timer));
    ASSERT_EQ(object_tracking_type_prb_delete("t"), 0);
  };
  const std::vector<int> results = results_of(
      prepare, [] { return create("t"); },
      [&](std::uint64_t k, const text_lines&) {
        // The second context of the delay, and the new leaf.
        if (k < 2) {
          EXPECT_TRUE(wtm_timer_leaf_running(track("t").delay_timer)) << k;
        }
        let_pass(std::chrono::seconds{30});
        EXPECT_EQ(track("t").state, track_state::down) << k;
      });
  ASSERT_GE(results.size(), 2U);
  EXPECT_EQ(results[0], no_memory);
  EXPECT_EQ(results[1], no_memory);
}

TEST_F(probe_memory, a_poll_needs_no_memory_of_its_own) {
  ASSERT_EQ(create("t"), 0);
  alloc_faults faults{0, alloc_fault_mode::onward};
  EXPECT_EQ(ot_prb_read_shm_after_timer_expired("t", 0), 0);
  EXPECT_TRUE(polled("t"));
}

TEST_F(probe_memory, a_poll_that_publishes_goes_on_without_memory) {
  results_of([] { ASSERT_EQ(create("t"), 0); },
             [] {
               field::probe_result(7, 2);
               return ot_prb_read_shm_after_timer_expired("t", 0);
             },
             [&](std::uint64_t k, const text_lines&) {
               EXPECT_EQ(track("t").state, track_state::down) << k;
               EXPECT_TRUE(polled("t")) << k;
             });
}

TEST_F(probe_memory, a_refusal_without_memory_still_refuses) {
  field::probe_package_removed();
  ledger_verdict verdict;
  const probe_change change(ledger_event_create, "t", {}, 7);
  alloc_faults faults{0, alloc_fault_mode::onward};
  EXPECT_EQ(object_tracking_prb_verify(change, verdict), probe_package_missing);
  EXPECT_EQ(verdict.accept, 0U);
  EXPECT_EQ(verdict.text, nullptr);
}

TEST_F(probe_memory, the_probe_table_is_refused_with_12) {
  stop();
  alloc_faults faults{0};
  EXPECT_EQ(prb_table_create(), no_memory);
}

TEST_F(probe_memory, nothing_is_leaked_on_the_way) {
  const probe_change other(ledger_event_set, "t", 7, 8);
  begin_again();
  const std::int64_t before = held_after_the_end();
  ASSERT_EQ(start(), 0);
  const auto ignore = [](std::uint64_t, const text_lines&) {};
  results_of([] {}, [] { return create("t"); }, ignore);
  results_of([] { ASSERT_EQ(create("t"), 0); },
             [&] { return object_tracking_type_prb_apply(other); }, ignore);
  results_of([] { ASSERT_EQ(create("t"), 0); }, [] { return object_tracking_type_prb_delete("t"); },
             ignore);
  EXPECT_EQ(held_after_the_end(), before);
}

}  // namespace
}  // namespace ot::test
