// From an operation's result through the whole service to its readers: the published item, the
// notification, the event, a list, the records and what "show track" prints of them.
#include "show/show.h"
#include "tests/unit/show/output.h"
#include "tests/unit/sources/probe/fixture.h"

namespace ot::test {
namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::HasSubstr;

class probe_event_path : public probe_service {
 protected:
  void SetUp() override {
    probe_service::SetUp();
    field::set_wall_clock(1'700'000'000);
    field::probe_result(7, 1, 23);
    ASSERT_EQ(commit({set_number(track_path("p", "a"), 1), set_number(op_item("p"), 7)}), 0);
    let_pass(milliseconds{100});
    take_notifications();
    take_events();
    forget_output();
  }
  static std::string shown(const char* name, const char* view) {
    std::string words[] = {"object_tracking", "show", "track", name, view};
    char* argv[] = {words[0].data(), words[1].data(), words[2].data(),
                    words[3].data(), words[4].data(), nullptr};
    return printed([&] { EXPECT_EQ(ot_show(5, argv), 0); });
  }
  // Sets the wall clock after a poll has come, so that times are printed alike.
  static void poll_at(std::int64_t seconds) {
    field::set_wall_clock(seconds - 2);
    next_poll();
  }
};

TEST_F(probe_event_path, a_failing_probe_is_published_everywhere) {
  ASSERT_EQ(commit({set_number(track_path("l", "type/list/0x3/a"), 1),
                    set_number(track_path("l", "type/list/0x3/object/p/a"), 1)}),
            0);
  let_pass(milliseconds{500});
  ASSERT_EQ(published("l"), 2U);  // "not p"
  take_notifications();
  take_events();
  forget_output();
  field::probe_result(7, 2);
  let_pass(milliseconds{1400});
  EXPECT_EQ(published("p"), 2U);
  EXPECT_THAT(take_events(), ElementsAre("p 2"));
  EXPECT_THAT(field::take_messages(),
              ElementsAre("OT-SERVICES-6-TRACK_INFO: track p state Track_Down"));
  let_pass(milliseconds{100});
  EXPECT_EQ(published("l"), 1U);
  EXPECT_THAT(take_notifications(), ElementsAre("p set 2", "l set 1"));
}

TEST_F(probe_event_path, an_up_probe_shows_its_code_and_response_time) {
  EXPECT_EQ(shown("p", "all"),
            "\nTrack p \n"
            "\tProbe Monitor 7 reachability \n"
            "\tReachability is UP \n"
            "\t1 change, last change 22:13:20 UTC Tue Nov 14 2023\n"
            "\tLatest operation return code: OK \n"
            "\tLatest RTT (millisecs) : 23 \n");
  EXPECT_THAT(shown("p", ""),
              HasSubstr("\np                                QMON Operation 7                      "
                        "    reachability     Up   \n"));
}

TEST_F(probe_event_path, a_response_time_is_shown_after_success_only) {
  field::probe_result(7, 2, 999);
  poll_at(1'700'000'060);
  EXPECT_EQ(shown("p", "all"),
            "\nTrack p \n"
            "\tProbe Monitor 7 reachability \n"
            "\tReachability is DOWN \n"
            "\t2 changes, last change 22:14:20 UTC Tue Nov 14 2023\n"
            "\tLatest operation return code: No answer (timeout) \n"
            "\tLatest RTT (millisecs) : 0 \n");
  EXPECT_THAT(shown("p", ""), HasSubstr(" reachability     Down \n"));
}

TEST_F(probe_event_path, other_failures_show_their_code_without_a_reachability_line) {
  field::probe_result(7, 4);
  poll_at(1'700'000'060);
  EXPECT_EQ(shown("p", "all"),
            "\nTrack p \n"
            "\tProbe Monitor 7 reachability \n"
            "\t2 changes, last change 22:14:20 UTC Tue Nov 14 2023\n"
            "\tLatest operation return code: Refused \n"
            "\tLatest RTT (millisecs) : 0 \n");
  field::probe_result(7, 77);
  poll_at(1'700'000'120);
  EXPECT_THAT(shown("p", "all"), HasSubstr("return code: Unknown return code 77 \n"));
}

TEST_F(probe_event_path, an_operation_that_does_not_run_shows_that_alone) {
  field::probe_stopped(7);
  next_poll();
  EXPECT_EQ(shown("p", "all"),
            "\nTrack p \n"
            "\tProbe Monitor 7 reachability \n"
            "\tqmon operation not in progress \n");
  EXPECT_THAT(shown("p", ""), HasSubstr(" reachability     Down \n"));
}

TEST_F(probe_event_path, a_delayed_change_shows_the_time_that_is_left) {
  ASSERT_EQ(commit({set_number(track_path("p", "delay_down"), 30)}), 0);
  field::probe_result(7, 2);
  next_poll();
  EXPECT_THAT(shown("p", "all"),
              HasSubstr("\tReachability is DOWN , delayed Down (30 secs remaining)\n"));
}

TEST_F(probe_event_path, a_restart_goes_on_from_the_published_state) {
  field::probe_result(7, 2);
  next_poll();
  ASSERT_EQ(published("p"), 2U);
  take_events();
  forget_output();
  ASSERT_EQ(restart(), 0);
  EXPECT_EQ(track("p").state, track_state::down);
  EXPECT_EQ(track("p").state_change_counter, 0U);
  EXPECT_THAT(field::take_messages(), testing::IsEmpty());
  field::probe_result(7, 1);
  next_poll();
  EXPECT_EQ(published("p"), 1U);
}

TEST_F(probe_event_path, a_restart_without_the_package_keeps_the_configuration) {
  stop();
  field::probe_package_removed();
  ASSERT_EQ(start(2), 0);
  EXPECT_EQ(track("p").type, track_type::probe);
  EXPECT_EQ(track("p").source_state, track_state::unknown);
  field::probe_package_installed();
  next_poll();
  EXPECT_EQ(track("p").state, track_state::up);
}

}  // namespace
}  // namespace ot::test
