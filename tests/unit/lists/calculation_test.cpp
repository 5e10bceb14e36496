// The calculation of all lists: its passes and traces, what ends it, and the timer before it.
#include <algorithm>

#include "platform/ledger_status.h"
#include "state/list_evaluation.h"
#include "tests/unit/lists/fixture.h"

namespace ot::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class list_calculation : public list_fixture {
 protected:
  // The calculation's own lines of one run; those of the functions it calls are left out.
  std::vector<std::string> traces_of_calculation() {
    trace();
    object_tracking_calc_tracks_state_after_timer_expired();
    std::vector<std::string> lines;
    for (const std::string& line : field::take_traces()) {
      if (line.rfind("Entering", 0) != 0 && line.rfind('(', 0) != 0) lines.push_back(line);
    }
    return lines;
  }

  static void forget_result(const std::string& name) {
    hash_db_get_track_item(name.c_str())->source_state = track_state::unknown;
  }
};

TEST_F(list_calculation, makes_no_pass_without_lists) {
  object("a", true);
  EXPECT_THAT(traces_of_calculation(),
              ElementsAre("Timer_expired:Total tracks(list type): set to uncalced: 0",
                          "Timer_expired: After Initial max_loop: 0"));
}

TEST_F(list_calculation, traces_a_boolean_list_that_is_decided) {
  list("l", 3, {{"nobody"}});
  forget_result("l");
  EXPECT_THAT(
      traces_of_calculation(),
      ElementsAre("Timer_expired:Total tracks(list type): set to uncalced: 1",
                  "Timer_expired:For track: l", "Timer_expired:computin track: l",
                  "CalcBTS: start point: l", "CalcBTS: computing state for track: not found",
                  "CalcBTS: computed state for track: nobody is: Track_Down",
                  "CalcBTS: writing computed state for track: l", "Timer_expired: num uncalced: 0",
                  "Timer_expired: max_loop: 0", "Timer_expired: After Initial max_loop: 0"));
}

TEST_F(list_calculation, traces_a_boolean_list_that_no_member_decides) {
  list("l", 4, {{"nobody"}});
  EXPECT_THAT(
      traces_of_calculation(),
      ElementsAre("Timer_expired:Total tracks(list type): set to uncalced: 1",
                  "Timer_expired:For track: l", "Timer_expired:computin track: l",
                  "CalcBTS: start point: l", "CalcBTS: computing state for track: not found",
                  "CalcBTS: computed state for track: nobody is: Unknown",
                  "computed state for track: l is: Unknown",
                  "EXIT  (object_tracking_calc_bool_track_state)", "Timer_expired: num uncalced: 0",
                  "Timer_expired: max_loop: 0", "Timer_expired: After Initial max_loop: 0"));
  forget_result("l");
  EXPECT_THAT(traces_of_calculation(),
              ::testing::Contains("computed state for track: l is: Track_Down"));
}

TEST_F(list_calculation, traces_empty_lists) {
  list("b", 3, {{"x"}});
  apply({remove_item(member_item("b", 3, "x"))});
  limits("t", 8, "0x5", 1);
  forget_result("b");
  EXPECT_THAT(traces_of_calculation(), ::testing::Contains("CalcBTS: writing state for track: b"));
  forget_result("t");
  EXPECT_THAT(traces_of_calculation(), ::testing::Contains("writing state for track: t"));
}

TEST_F(list_calculation, traces_a_threshold_list) {
  object("a", true);
  limits("l", 7, "0x5", 1);
  list("l", 7, {{"nobody", 2}, {"a", 3}});
  EXPECT_THAT(traces_of_calculation(),
              ::testing::IsSupersetOf({"thld:computing state for track:a, state is Track_Up",
                                       "thld: weighted sum is 3"}));
}

// Two lists that contain each other wait for each other.
TEST_F(list_calculation, a_cycle_keeps_its_states) {
  object("a", true);
  list("p", 4, {{"a"}});
  ASSERT_EQ(state("p"), track_state::up);
  list("q", 4, {{"p"}});
  ASSERT_EQ(state("q"), track_state::up);
  apply({set_number(member_item("p", 4, "q"), 0)});
  settle();
  field::link_down("a");
  const std::uint32_t before = publications("p");
  settle();
  EXPECT_EQ(state("p"), track_state::up);
  EXPECT_EQ(state("q"), track_state::up);
  EXPECT_EQ(publications("p"), before);
  const auto lines = traces_of_calculation();
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "CalcBTS: skipping this item: q"), 1)
      << "a pass that computes nothing is the last";
  EXPECT_EQ(lines.back(), "Timer_expired: After Initial max_loop: 1");
}

// The members are looked at in order: a deciding one before the waiting one ends the wait.
TEST_F(list_calculation, a_deciding_member_breaks_a_cycle) {
  object("a", true);
  list("p", 4, {{"q"}, {"a"}});
  list("q", 4, {{"p"}});
  EXPECT_EQ(members("p"), "a=0 q=0");
  EXPECT_EQ(state("p"), track_state::up);
  EXPECT_EQ(state("q"), track_state::up);
}

TEST_F(list_calculation, a_threshold_list_waits_whatever_the_order) {
  object("a", true);
  limits("p", 7, "0x5", 1);
  limits("q", 7, "0x5", 1);
  list("p", 7, {{"q", 0}, {"a", 3}});
  list("q", 7, {{"p", 1}});
  EXPECT_THAT(traces_of_calculation(), ::testing::Contains("thld: skipping this item: q").Times(1));
}

TEST_F(list_calculation, three_levels_settle_in_one_calculation) {
  object("a", true);
  object("b", true);
  list("top", 3, {{"middle"}});
  list("middle", 4, {{"bottom", 1}});
  limits("bottom", 8, "0x64", 99);
  list("bottom", 8, {{"a"}, {"b"}});
  EXPECT_EQ(state("top"), track_state::down);
  field::link_down("b");
  field::run_pending();
  object_tracking_calc_tracks_state_after_timer_expired();
  EXPECT_EQ(state("bottom"), track_state::down);
  EXPECT_EQ(state("middle"), track_state::up);
  EXPECT_EQ(state("top"), track_state::up);
}

TEST_F(list_calculation, requests_within_twenty_milliseconds_cost_one_calculation) {
  object("a", true);
  list("l", 3, {{"a"}});
  settle();
  const std::uint32_t before = publications("l");
  for (int flap = 0; flap < 5; ++flap) {
    field::link_down("a");
    field::advance(std::chrono::milliseconds(9));
    field::link_up("a");
    field::advance(std::chrono::milliseconds(9));
  }
  EXPECT_EQ(publications("l"), before);
  field::link_down("a");
  field::advance(std::chrono::milliseconds(19));
  EXPECT_EQ(publications("l"), before);
  field::advance(std::chrono::milliseconds(1));
  EXPECT_EQ(publications("l"), before + 1);
  EXPECT_EQ(state("l"), track_state::down);
}

TEST_F(list_calculation, a_failed_publication_ends_it) {
  object("a", true);
  list("l", 3, {{"a"}});
  list("m", 4, {{"a"}});
  field::link_down("a");
  field::run_pending();
  trace();
  ledger_control_fail_next(ledger_operation::set, ledger_storage_failure);
  object_tracking_calc_tracks_state_after_timer_expired();
  const auto lines = field::take_traces();
  EXPECT_THAT(lines,
              ::testing::Not(::testing::Contains("Timer_expired: After Initial max_loop: 1")));
  EXPECT_THAT(lines, ::testing::Not(::testing::Contains("Timer_expired: num uncalced: 1")));
  EXPECT_NE(state("l") == track_state::down, state("m") == track_state::down) << "the first only";
  settle();
  EXPECT_EQ(state("l"), track_state::down) << "its publication has requested the next calculation";
  EXPECT_EQ(state("m"), track_state::down);
}

// What was computed stands, published or not: it is not computed and reported anew.
TEST_F(list_calculation, a_failed_publication_keeps_the_result) {
  object("a", true);
  limits("w", 7, "0x5", 1);
  for (const int type : {3, 4, 7}) {
    const std::string name = type == 7 ? "w" : "b" + std::to_string(type);
    list(name, type, {{"a", type == 7 ? 2U : 0U}});
    ASSERT_EQ(state(name), track_state::up);
  }
  const text_lines names = {"b3", "b4", "w"};
  std::vector<std::uint32_t> once_more;
  for (const std::string& name : names) once_more.push_back(publications(name) + 1);
  const auto counts = [&] {
    std::vector<std::uint32_t> all;
    for (const std::string& name : names) all.push_back(publications(name));
    return all;
  };
  field::link_down("a");
  field::run_pending();
  for (int round = 0; round < 3; ++round) {  // each round one list more
    ledger_control_fail_next(ledger_operation::set, ledger_storage_failure);
    object_tracking_calc_tracks_state_after_timer_expired();
  }
  for (const std::string& name : names) {
    EXPECT_EQ(source(name), track_state::down) << name;
    EXPECT_EQ(state(name), track_state::down) << name;
    EXPECT_EQ(published(name), 1U) << name;
  }
  EXPECT_EQ(counts(), once_more);
  settle();
  EXPECT_EQ(counts(), once_more);
}

TEST_F(list_calculation, a_delayed_list_publishes_later) {
  object("a", true);
  list("l", 3, {{"a"}});
  apply({set_number(track_path("l", "delay_down"), 2)});
  field::link_down("a");
  settle();
  EXPECT_EQ(source("l"), track_state::down);
  EXPECT_EQ(state("l"), track_state::up);
  field::advance(std::chrono::seconds(2));
  EXPECT_EQ(state("l"), track_state::down);
}

TEST_F(list_calculation, a_restart_takes_the_states_over) {
  object("a", true);
  list("l", 3, {{"a"}});
  limits("w", 7, "0x5", 1);
  list("w", 7, {{"l", 2}});
  ASSERT_EQ(state("w"), track_state::up);
  field::take_messages();
  ASSERT_EQ(restart(), 0);
  EXPECT_EQ(state("l"), track_state::up);
  EXPECT_EQ(state("w"), track_state::up);
  settle();
  EXPECT_EQ(state("w"), track_state::up);
  EXPECT_EQ(publications("l"), 0U);
  EXPECT_EQ(publications("w"), 0U);
  EXPECT_THAT(field::take_messages(), IsEmpty());
}

}  // namespace
}  // namespace ot::test
