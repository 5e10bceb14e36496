// The poll: every two seconds one look at the operation's result, and what becomes of it.
#include "sources/probe/track.h"

#include <algorithm>

#include "platform/ledger_status.h"
#include "platform/memory/ledger_controls.h"
#include "sources/probe/statistics.h"
#include "tests/unit/sources/probe/fixture.h"

namespace ot::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;

constexpr const char* find_track = "Entering (hash_db_get_track_item) : ";

class probe_poll : public probe_service {
 protected:
  void SetUp() override {
    probe_service::SetUp();
    field::probe_result(7, 1, 23);
    ASSERT_EQ(create("t"), 0);
    let_pass(milliseconds{200});  // notifications are out
    forget_output();
  }
  std::uint32_t publications() { return track("t").state_change_counter; }
};

TEST_F(probe_poll, comes_every_two_seconds) {
  field::probe_result(7, 2);
  let_pass(milliseconds{1800} - nanoseconds{1});
  EXPECT_EQ(track("t").state, track_state::up);
  let_pass(nanoseconds{1});
  EXPECT_EQ(track("t").state, track_state::down);
  field::probe_result(7, 1);
  let_pass(seconds{2} - nanoseconds{1});
  EXPECT_EQ(track("t").state, track_state::down);
  let_pass(nanoseconds{1});
  EXPECT_EQ(track("t").state, track_state::up);
  EXPECT_EQ(published("t"), 1U);
}

TEST_F(probe_poll, shares_a_wake_up_with_others_and_is_never_later_than_two_seconds) {
  let_pass(milliseconds{1807});
  ASSERT_EQ(create("u", 8), 0);
  field::probe_result(8, 1);
  let_pass(milliseconds{1890});
  EXPECT_EQ(track("u").state, track_state::unknown);
  trace();
  field::take_traces();
  let_pass(milliseconds{110});
  EXPECT_EQ(track("u").state, track_state::up);
  const text_lines traces = field::take_traces();
  const auto times = [&traces](const char* line) {
    return std::count(traces.begin(), traces.end(), line);
  };
  EXPECT_EQ(times("(handle_ot_wtm_timer_expired) : PRB_SHM_POLL_INTERVAL expired"), 2);
  EXPECT_EQ(times("Entering (handle_ot_wtm_timer_expired) : "), 1);
}

TEST_F(probe_poll, keeps_the_code_and_the_response_time) {
  for (const std::uint32_t code : {2U, 0U, 1U, 99U}) {
    field::probe_result(7, code, 1000 + code);
    next_poll();
    EXPECT_EQ(track("t").object.probe.return_code, code);
    EXPECT_EQ(track("t").object.probe.response_time, 1000 + code);
    EXPECT_EQ(track("t").source_state, state_of_return_code(code));
    EXPECT_EQ(track("t").state, state_of_return_code(code));
  }
}

TEST_F(probe_poll, says_what_it_does) {
  trace();
  next_poll();
  EXPECT_THAT(
      field::take_traces(),
      ElementsAre(
          "Entering (handle_ot_wtm_timer_expired) : ",
          "(handle_ot_wtm_timer_expired) : PRB_SHM_POLL_INTERVAL expired",
          "Entering (get_timer_ctx) : ", "PRB_SHM_POLL_INTERVAL timer triggered for track : t",
          "(ot_prb_read_shm_after_timer_expired) : track_name = t", find_track,
          "Entering (stop_ot_timer) : ", "Entering (shm_read_qmon_stats) : ",
          " Reading from qmon shared mem ", " latestReturnCode = 1, latestResponseTime = 23",
          "(object_tracking_set_track_state_in_ledger) : track t state Track_Up", find_track,
          "(object_tracking_set_track_state_in_ledger) : track t ledger state "
          "Track_Up",
          "Entering (set_ot_shm_poll_wait_timer) : "));
}

TEST_F(probe_poll, an_unchanged_state_is_not_published_again_without_delays) {
  const std::uint32_t before = publications();
  let_pass(seconds{20});
  EXPECT_EQ(publications(), before);
  EXPECT_TRUE(polled("t"));
}

TEST_F(probe_poll, an_up_track_with_a_delay_down_alone_is_published_at_every_poll) {
  ASSERT_EQ(commit({set_number(track_path("t", "delay_down"), 10)}), 0);
  const std::uint32_t before = publications();
  let_pass(seconds{20});
  EXPECT_EQ(publications(), before + 10);
  EXPECT_EQ(track("t").state, track_state::up);
}

TEST_F(probe_poll, a_pending_change_is_neither_restarted_nor_lengthened) {
  ASSERT_EQ(commit({set_number(track_path("t", "delay_down"), 10)}), 0);
  field::probe_result(7, 2);
  let_pass(milliseconds{1800});
  let_pass(seconds{10} - nanoseconds{1});
  EXPECT_EQ(track("t").state, track_state::up);
  let_pass(nanoseconds{1});
  EXPECT_EQ(track("t").state, track_state::down);
}

TEST_F(probe_poll, a_result_that_comes_back_cancels_the_pending_change) {
  ASSERT_EQ(commit({set_number(track_path("t", "delay_up"), 2),
                    set_number(track_path("t", "delay_down"), 10)}),
            0);
  field::probe_result(7, 2);
  next_poll();
  ASSERT_TRUE(wtm_timer_leaf_running(track("t").delay_timer));
  field::probe_result(7, 1);
  next_poll();
  EXPECT_FALSE(wtm_timer_leaf_running(track("t").delay_timer));
  let_pass(seconds{20});
  EXPECT_EQ(track("t").state, track_state::up);
}

TEST_F(probe_poll, a_cleared_delay_becomes_two_seconds) {
  ASSERT_EQ(commit({set_number(track_path("t", "delay_down"), 30)}), 0);
  ASSERT_EQ(commit({remove_item(track_path("t", "delay_down"))}), 0);
  EXPECT_EQ(track("t").delay_down, 2);
  EXPECT_EQ(track("t").delay_up, 0);
  field::probe_result(7, 2);
  let_pass(milliseconds{1800});
  EXPECT_EQ(track("t").state, track_state::up);
  let_pass(seconds{2});
  EXPECT_EQ(track("t").state, track_state::down);
}

TEST_F(probe_poll, an_operation_that_stops_makes_its_track_unknown_not_down) {
  field::probe_stopped(7);
  trace();
  next_poll();
  EXPECT_THAT(field::take_traces(),
              Contains(" Corresponding qmon operation with op id 7 is not running "));
  EXPECT_EQ(track("t").state, track_state::unknown);
  EXPECT_EQ(track("t").object.probe.return_code, 0U);
  EXPECT_EQ(track("t").object.probe.response_time, 0U);
  EXPECT_EQ(published("t"), 2U);
  EXPECT_THAT(field::take_messages(),
              ElementsAre("OT-SERVICES-6-TRACK_INFO: track t state Unknown"));
  field::probe_result(7, 1);
  next_poll();
  EXPECT_EQ(track("t").state, track_state::up);
}

TEST_F(probe_poll, the_service_may_end_and_start_again) {
  field::probe_service_gone();
  next_poll();
  EXPECT_EQ(track("t").state, track_state::unknown);
  field::probe_service_back();
  next_poll();
  EXPECT_EQ(track("t").state, track_state::up);
}

TEST_F(probe_poll, a_table_that_goes_is_tried_at_every_poll_and_opened_when_it_is_back) {
  field::probe_table_gone();
  const text_lines tried = {"Failed to initialize the stats table ", "Entering (track_prb_init) : ",
                            " Failed to initialize qmon shared mem ",
                            "Failed to initialize the stats tableafter shared mem window open",
                            " Corresponding qmon operation with op id 7 is not running "};
  for (int poll = 0; poll < 2; ++poll) {
    trace();
    next_poll();
    EXPECT_THAT(field::take_traces(), contains_in_order(tried));
    EXPECT_EQ(track("t").state, track_state::unknown);
  }
  field::probe_service_back();
  trace();
  next_poll();
  const text_lines traces = field::take_traces();
  EXPECT_THAT(traces,
              contains_in_order(text_lines{"Failed to initialize the stats table ",
                                           " Succesfully initialized qmon shm in read only mode ",
                                           " Reading from qmon shared mem "}));
  EXPECT_THAT(traces, Not(Contains(tried[3])));
  EXPECT_EQ(track("t").state, track_state::up);
}

TEST_F(probe_poll, loads_both_libraries_every_time_and_holds_them_once) {
  const auto before = field::probe_library_use(component);
  let_pass(seconds{10});
  for (const char* library : {infrastructure, component}) {
    EXPECT_EQ(field::probe_library_use(library).asked_for, before.asked_for + 5);
    EXPECT_EQ(field::probe_library_use(library).held, 1);
  }
  stop();
  EXPECT_EQ(field::probe_library_use(component).held, 0);
}

TEST_F(probe_poll, a_failed_publication_ends_it_until_the_track_is_configured_again) {
  field::probe_result(7, 2);
  ledger_control_fail_next(ledger_operation::set, ledger_full);
  trace();
  next_poll();
  EXPECT_THAT(field::take_traces(),
              Contains("(handle_ot_wtm_timer_expired) : ot_prb_read_shm_after_timer_expired "
                       "failed- The ledger is full"));
  EXPECT_FALSE(polled("t"));
  EXPECT_EQ(track("t").source_state, track_state::down);
  EXPECT_EQ(track("t").object.probe.return_code, 2U);
  field::probe_result(7, 1);
  let_pass(seconds{20});
  EXPECT_EQ(track("t").state, track_state::down);
  ASSERT_EQ(object_tracking_type_prb_delete("t"), 0);
  ASSERT_EQ(create("t"), 0);
  EXPECT_EQ(track("t").state, track_state::up);
  EXPECT_TRUE(polled("t"));
}

TEST_F(probe_poll, of_a_track_that_does_not_exist_is_0_and_reported) {
  trace();
  EXPECT_EQ(ot_prb_read_shm_after_timer_expired("none", 3), 0);
  EXPECT_THAT(field::take_traces(),
              ElementsAre("(ot_prb_read_shm_after_timer_expired) : track_name = none", find_track,
                          " (ot_prb_read_shm_after_timer_expired) : track none doesnt exist"));
}

TEST_F(probe_poll, of_a_track_that_was_deleted_with_its_poll_running_comes_once) {
  ASSERT_EQ(create("second"), 0);  // keeps the entry, and so the first one's poll
  ASSERT_EQ(commit({set_number(track_path("t", "a"), 1)}), 0);
  ASSERT_EQ(delete_track("t"), 0);
  trace();
  next_poll();
  const std::string gone = " (ot_prb_read_shm_after_timer_expired) : track t doesnt exist";
  EXPECT_THAT(field::take_traces(), Contains(gone).Times(1));
  next_poll();
  EXPECT_THAT(field::take_traces(), Not(Contains(gone)));
  EXPECT_EQ(published("t"), std::nullopt);
}

TEST_F(probe_poll, leaves_a_track_alone_that_follows_something_else_by_now) {
  ASSERT_EQ(create("second"), 0);
  ASSERT_EQ(object_tracking_type_prb_delete("t"), 0);
  field::interface_added("eth-of-a-long-name", false);
  ASSERT_EQ(commit(interface_track("t", "eth-of-a-long-name")), 0);
  ASSERT_TRUE(polled("t"));
  next_poll();
  EXPECT_FALSE(polled("t"));
  EXPECT_EQ(track("t").object.interface.name, "eth-of-a-long-name");
  EXPECT_EQ(track("t").state, track_state::down);
}

TEST_F(probe_poll, without_a_name_is_0_and_reported) {
  trace();
  EXPECT_EQ(ot_prb_read_shm_after_timer_expired(nullptr, 0), 0);
  EXPECT_THAT(field::take_traces(),
              ElementsAre("(ot_prb_read_shm_after_timer_expired) : track_name = ",
                          " Invalid arg : (ot_prb_read_shm_after_timer_expired) :"));
}

}  // namespace
}  // namespace ot::test
