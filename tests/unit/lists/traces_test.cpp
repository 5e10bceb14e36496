// What the configuration of lists says of itself: every step of every change, to the letter.
#include <algorithm>

#include "lists/boolean_list.h"
#include "lists/configuration.h"
#include "lists/threshold_list.h"
#include "state/list_evaluation.h"
#include "tests/unit/lists/fixture.h"

namespace ot::test {
namespace {

using testing::ElementsAre;

constexpr std::uint32_t on_create = ledger_event_create;
constexpr std::uint32_t on_set = ledger_event_set;
constexpr std::uint32_t on_delete = ledger_event_delete;

const std::string dispatch = "Entering (object_tracking_type_list_object_apply) : ";
const std::string calculation_asked_for = "Entering (object_tracking_calc_tracks_state) : ";

class list_traces : public list_fixture {
 protected:
  // What `act` traces, without the look-ups of tracks and the timers' own lines.
  template <typename Act>
  text_lines traced(Act&& act) {
    trace();
    act();
    text_lines lines = field::take_traces();
    trace(false);
    std::erase_if(lines, [](const std::string& line) {
      return line == "Entering (hash_db_get_track_item) : " || line == "(set_ot_delay_timer)" ||
             line == "Entering (set_ot_wait_timer) : ";
    });
    return lines;
  }
  text_lines applied(direct_change& change) {
    return traced([&] { EXPECT_EQ(object_tracking_type_list_object_apply(change.get()), 0); });
  }
  text_lines limits_applied(direct_change& change) {
    return traced(
        [&] { EXPECT_EQ(object_tracking_type_threshold_object_crt_apply(change.get()), 0); });
  }
  text_lines limits_verified(direct_change& change) {
    ledger_verdict verdict;
    return traced([&] {
      EXPECT_EQ(object_tracking_type_threshold_object_limits_verify(change.get(), verdict), 0);
    });
  }
};

TEST_F(list_traces, of_a_boolean_member) {
  const std::string who = "(object_tracking_type_bool_object_apply)";
  const std::string entry = "Entering " + who + " : ";
  direct_change create(on_create, "l", 3, "a", 1);
  EXPECT_THAT(applied(create),
              ElementsAre(dispatch, entry, who + " :track = l, bool type 3 object = a, not = 1",
                          who + " :LEDGER_EVENT_CREATE",
                          "(object_tracking_type_bool_create) : track l", calculation_asked_for));
  direct_change same(on_set, "l", 3, "a", 1);
  EXPECT_THAT(applied(same.from(1)),
              ElementsAre(dispatch, entry, who + " : track = l, bool type 3 object = a, not = 1",
                          who + " :LEDGER_EVENT_SET", who + " config not changed, do nothing"));
  direct_change other(on_set, "l", 3, "a", 0);
  EXPECT_THAT(applied(other.from(1)),
              ElementsAre(dispatch, entry, who + " : track = l, bool type 3 object = a, not = 0",
                          who + " :LEDGER_EVENT_SET", who + " delete",
                          "(delete_track_bool_object) : object a", who + " create",
                          "(object_tracking_type_bool_create) : track l", calculation_asked_for));
  direct_change gone(on_delete, "l", 3, "a", 0);
  EXPECT_THAT(applied(gone.from(0).to_nothing()),
              ElementsAre(dispatch, entry, who + " :LEDGER_EVENT_DELETE",
                          "(delete_track_bool_object) : object a", calculation_asked_for));
}

TEST_F(list_traces, of_a_threshold_member) {
  const std::string who = "(object_tracking_type_threshold_object_apply)";
  const std::string item = who + " :item: a";
  const std::string entry = "Entering " + who + " : ";
  const std::string adding = "(ot_thld_add_obj_to_track) : Add to Track:l Obj:a";
  const std::string removing = "(ot_thld_del_obj_from_track) : Deleting object a";
  direct_change create(on_create, "l", 7, "a", 5);
  EXPECT_THAT(applied(create),
              ElementsAre(dispatch, item, entry,
                          who + " :track = l, threshold type 7 object = a, weight = 5",
                          "(ot_thld_create_track) : track l", adding, calculation_asked_for));
  direct_change same(on_set, "l", 7, "a", 5);
  EXPECT_THAT(
      applied(same.from(5)),
      ElementsAre(dispatch, item, entry, who + " : Weight value not changed, ignore silently"));
  direct_change other(on_set, "l", 7, "a", 6);
  EXPECT_THAT(applied(other.from(5)),
              ElementsAre(dispatch, item, entry, removing, "(ot_thld_create_track) : track l",
                          adding, calculation_asked_for));
  direct_change gone(on_delete, "l", 7, "a", 0);
  EXPECT_THAT(
      applied(gone.from(6).to_nothing()),
      ElementsAre(dispatch, item, entry, who + " :LEDGER_EVENT_DELETE", who + " :info->oldvalue:6",
                  who + " :info->newvalue:0", removing, calculation_asked_for));
}

TEST_F(list_traces, of_limits_that_are_applied) {
  const std::string who = "(object_tracking_type_threshold_object_crt_apply)";
  const std::string entry = "Entering " + who + " : ";
  direct_change create(on_create, "l", 7, nullptr, 5, 10);
  EXPECT_THAT(limits_applied(create),
              ElementsAre(entry, who + " :LEDGER_EVENT_CREATE", who + " :info->oldvalue:0",
                          who + " :info->newvalue:5", "(ot_thld_create_track) : track l",
                          calculation_asked_for));
  direct_change same(on_set, "l", 7, nullptr, 5, 10);
  EXPECT_THAT(limits_applied(same.from(5)),
              ElementsAre(entry, who + " :LEDGER_EVENT_SET",
                          who + " : Limits not changed, ignore silently"));
  direct_change other(on_set, "l", 7, nullptr, 6, 10);
  EXPECT_THAT(limits_applied(other.from(5)),
              ElementsAre(entry, who + " :LEDGER_EVENT_SET", calculation_asked_for));
  direct_change gone(on_delete, "l", 7, nullptr, 0, 10);
  EXPECT_THAT(limits_applied(gone.from(6).to_nothing()),
              ElementsAre(entry, who + " :LEDGER_EVENT_DELETE", who + " : Currently do NOP",
                          calculation_asked_for));
}

TEST_F(list_traces, of_limits_that_are_verified) {
  const std::string who = "(object_tracking_type_threshold_object_limits_verify)";
  const std::string entry = "Entering " + who + " : ";
  direct_change create(on_create, "l", 8, nullptr, 5, 10);
  EXPECT_THAT(
      limits_verified(create),
      ElementsAre(entry, who + " :num argument : 3",
                  who + " :track = l, threshold type 8 threshold_up = 10, threshold_down = 5",
                  calculation_asked_for));
  direct_change gone(on_delete, "l", 8, nullptr, 0, 10);
  EXPECT_THAT(
      limits_verified(gone.from(5).to_nothing()),
      ElementsAre(entry, who + " :num argument : 3",
                  who + " :track = l, threshold type 8 threshold_up = 10, threshold_down = 0",
                  who + " :LEDGER_EVENT_DELETE", who + " : Currently do NOP",
                  calculation_asked_for));
}

TEST_F(list_traces, of_a_member_that_is_verified) {
  ledger_verdict verdict;
  direct_change change(on_create, "l", 3, "a", 1);
  EXPECT_THAT(traced([&] { object_tracking_type_list_object_verify(change.get(), verdict); }),
              ElementsAre("Entering (object_tracking_type_list_object_verify) : "));
}

TEST_F(list_traces, of_the_removal_of_all_members) {
  ASSERT_EQ(object_tracking_type_bool_create("b", track_type::boolean_and, "a", 0), 0);
  ASSERT_EQ(ot_thld_create_track("t", track_type::threshold_weight, "a", 1), 0);
  EXPECT_THAT(traced([] { object_tracking_delete_track_bool_objects_by_name("b"); }),
              ElementsAre("Entering (object_tracking_delete_track_bool_objects_by_name) : ",
                          "Entering (object_tracking_delete_track_bool_objects) : "));
  EXPECT_THAT(traced([&] { ot_thld_del_track_objects(&track("t")); }),
              ElementsAre("Entering (ot_thld_del_track_objects) : "));
}

TEST_F(list_traces, of_the_request_and_of_the_calculation) {
  EXPECT_THAT(traced(object_tracking_calc_tracks_state), ElementsAre(calculation_asked_for));
  EXPECT_THAT(traced(object_tracking_calc_tracks_state_after_timer_expired),
              ElementsAre("Entering (object_tracking_calc_tracks_state_after_timer_expired) : ",
                          "Timer_expired:Total tracks(list type): set to uncalced: 0",
                          "Timer_expired: After Initial max_loop: 0"));
}

// A list that has been computed, and a track that is none.
TEST_F(list_traces, of_a_pass_over_what_there_is_nothing_to_compute_for) {
  object("a", true);
  EXPECT_THAT(traced(object_tracking_calc_tracks_state_after_timer_expired),
              ElementsAre("Entering (object_tracking_calc_tracks_state_after_timer_expired) : ",
                          "Timer_expired:Total tracks(list type): set to uncalced: 0",
                          "Timer_expired: After Initial max_loop: 0"));
  list("l", 3, {{"l2"}});
  list("l2", 3, {{"l"}, {"nobody"}});
  const text_lines lines = traced(object_tracking_calc_tracks_state_after_timer_expired);
  EXPECT_THAT(lines, testing::Contains("Timer_expired:skipping track: a"));
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "Timer_expired:For track: a"),
            std::count(lines.begin(), lines.end(), "Timer_expired:skipping track: a"));
}

TEST_F(list_traces, of_a_threshold_list_from_its_first_member_on) {
  object("a", true);
  limits("l", 7, "0x5", 1);
  list("l", 7, {{"nobody", 2}, {"a", 3}});
  std::uint32_t done = 7;
  EXPECT_THAT(traced([&] { object_tracking_calc_thld_track_state(&track("l"), &done); }),
              ElementsAre("thld:computing state for track:a, state is Track_Up",
                          "thld: weighted sum is 3"));
  EXPECT_EQ(done, 1U);
}

}  // namespace
}  // namespace ot::test
