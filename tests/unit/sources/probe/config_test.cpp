// The operation's item as it is applied: create, set and delete.
#include "sources/probe/track.h"

#include <algorithm>

#include "platform/component_status.h"
#include "platform/ledger_status.h"
#include "platform/memory/ledger_controls.h"
#include "tests/unit/sources/probe/fixture.h"

namespace ot::test {
namespace {

using testing::Contains;
using testing::ElementsAre;

constexpr std::uint32_t on_create = ledger_event_create;
constexpr std::uint32_t on_set = ledger_event_set;
constexpr std::uint32_t on_delete = ledger_event_delete;

class probe_config : public probe_service {
 protected:
  // Whether one of the traces reports that the operation was called.
  static bool called(const text_lines& traces, const std::string& function) {
    return std::any_of(traces.begin(), traces.end(), [&](const std::string& line) {
      return line.find("(" + function + ")") != std::string::npos;
    });
  }
};

TEST_F(probe_config, an_item_ties_the_track_and_remembers_its_type) {
  field::probe_result(7, 1, 23);
  ASSERT_EQ(set_op("t", 7), 0);
  EXPECT_EQ(published("t"), 1U);
  EXPECT_EQ(track("t").configured_type, 5U);
  EXPECT_THAT(followers(), ElementsAre("t"));
}

TEST_F(probe_config, every_apply_opens_the_statistics_before_anything_else) {
  ASSERT_EQ(set_op("t", 7), 0);
  const std::string apply = "Entering (object_tracking_type_prb_apply) : ";
  const std::string opening = " Initialize shared mem read only mode ";
  const std::string init = "Entering (track_prb_init) : ";
  const std::string opened = " Succesfully initialized qmon shm in read only mode ";
  trace();
  ASSERT_EQ(object_tracking_type_prb_apply(probe_change(on_set, "t", 7, 7)), 0);
  EXPECT_THAT(field::take_traces(),
              ElementsAre(apply, opening, init, opened,
                          "(object_tracking_type_prb_apply) :LEDGER_EVENT_SET",
                          "(object_tracking_type_prb_apply) config not changed, do nothing"));
  ASSERT_EQ(object_tracking_type_prb_apply(probe_change(0, "t", 7, 7)), 0);
  EXPECT_THAT(field::take_traces(), ElementsAre(apply, opening, init, opened));
  field::fail_next("qmon_ot_shm_client_init", 5);
  ASSERT_EQ(object_tracking_type_prb_apply(probe_change(on_delete, "t", {}, {})), 0);
  EXPECT_THAT(field::take_traces(),
              ElementsAre(apply, opening, init, " Failed to initialize qmon shared mem ",
                          "(object_tracking_type_prb_apply) :LEDGER_EVENT_DELETE"));
}

TEST_F(probe_config, a_missing_package_lets_the_apply_go_on) {
  field::probe_package_removed();
  trace();
  ASSERT_EQ(object_tracking_type_prb_apply(probe_change(on_create, "t", {}, 7)), 0);
  const text_lines traces = field::take_traces();
  EXPECT_THAT(
      text_lines(traces.begin(), traces.begin() + 9),
      ElementsAre(
          "Entering (object_tracking_type_prb_apply) : ", " Initialize shared mem read only mode ",
          "Entering (track_prb_init) : ", "Manageability package is not available",
          "(object_tracking_type_prb_apply) :LEDGER_EVENT_CREATE",
          "Entering (object_tracking_type_prb_create) : ", "Entering (shm_read_qmon_stats) : ",
          "Manageability package is not available", " Track set to Unknown"));
  EXPECT_EQ(track("t").state, track_state::unknown);
  EXPECT_TRUE(polled("t"));
}

TEST_F(probe_config, an_unchanged_operation_does_nothing) {
  field::probe_result(7, 1);
  ASSERT_EQ(set_op("t", 7), 0);
  const wtm_leaf* poll = track("t").poll_timer;
  const std::uint32_t publications = track("t").state_change_counter;
  ASSERT_EQ(object_tracking_type_prb_apply(probe_change(on_set, "t", 7, 7)), 0);
  EXPECT_EQ(track("t").poll_timer, poll);
  EXPECT_EQ(track("t").state_change_counter, publications);
  EXPECT_THAT(followers(), ElementsAre("t"));
}

TEST_F(probe_config, another_operation_is_let_go_as_down_and_followed_anew) {
  field::probe_result(7, 1);
  field::probe_result(8, 1);
  ASSERT_EQ(set_op("t", 7), 0);
  trace();
  ASSERT_EQ(object_tracking_type_prb_apply(probe_change(on_set, "t", 7, 8)), 0);
  EXPECT_THAT(field::take_messages(),
              ElementsAre("OT-SERVICES-6-TRACK_INFO: track t state Track_Down",
                          "OT-SERVICES-6-TRACK_INFO: track t state Track_Up"));
  EXPECT_THAT(field::take_traces(),
              contains_in_order(text_lines{"(object_tracking_type_prb_delete) delete track t:",
                                           "Entering (object_tracking_type_prb_create) : "}));
  EXPECT_EQ(entry(7), nullptr);
  EXPECT_THAT(followers(8), ElementsAre("t"));
  EXPECT_EQ(track("t").type, track_type::probe);
  EXPECT_EQ(track("t").state_change_counter, 1U);  // counted from the new operation on
  next_poll();
  EXPECT_TRUE(polled("t"));
}

TEST_F(probe_config, a_commit_can_change_to_the_operation_of_the_types_own_number) {
  ASSERT_EQ(set_op("t", 7), 0);
  EXPECT_EQ(set_op("t", 8), track_type_conflict);
  ASSERT_EQ(set_op("t", 5), 0);
  EXPECT_THAT(followers(5), ElementsAre("t"));
  EXPECT_EQ(entry(7), nullptr);
}

TEST_F(probe_config, a_set_without_an_old_operation_only_creates) {
  trace();
  ASSERT_EQ(object_tracking_type_prb_apply(probe_change(on_set, "t", {}, 7)), 0);
  EXPECT_FALSE(called(field::take_traces(), "object_tracking_type_prb_delete"));
  EXPECT_THAT(followers(), ElementsAre("t"));
}

TEST_F(probe_config, a_set_without_a_new_operation_does_nothing) {
  ASSERT_EQ(set_op("t", 7), 0);
  ASSERT_EQ(object_tracking_type_prb_apply(probe_change(on_set, "t", 7, {})), 0);
  EXPECT_THAT(followers(), ElementsAre("t"));
}

TEST_F(probe_config, removing_the_item_unties_the_track_and_keeps_it) {
  field::probe_result(7, 1);
  ASSERT_EQ(set_op("t", 7), 0);
  trace();
  ASSERT_EQ(commit({remove_item(op_item("t"))}), 0);
  EXPECT_THAT(field::take_traces(),
              contains_in_order(text_lines{"(object_tracking_type_prb_apply) :LEDGER_EVENT_DELETE",
                                           "(object_tracking_type_prb_delete) delete track t:"}));
  EXPECT_EQ(published("t"), 2U);
  EXPECT_EQ(track("t").type, track_type::none);
  EXPECT_EQ(track("t").configured_type, 5U);
  EXPECT_EQ(entry(), nullptr);
  EXPECT_FALSE(polled("t"));
}

TEST_F(probe_config, a_delete_without_an_old_operation_does_nothing) {
  ASSERT_EQ(set_op("t", 7), 0);
  ASSERT_EQ(object_tracking_type_prb_apply(probe_change(on_delete, "t", {}, {})), 0);
  EXPECT_THAT(followers(), ElementsAre("t"));
}

TEST_F(probe_config, failures_are_reported_and_returned) {
  field::probe_result(7, 1);
  ledger_control_fail_next(ledger_operation::set, ledger_full);
  trace();
  EXPECT_EQ(object_tracking_type_prb_apply(probe_change(on_create, "t", {}, 7)), ledger_full);
  EXPECT_THAT(field::take_traces(),
              Contains("(object_tracking_type_prb_apply) : object_tracking_type_prb_create failed "
                       "- The ledger is full"));
  ledger_control_fail_next(ledger_operation::set, ledger_full);
  EXPECT_EQ(object_tracking_type_prb_apply(probe_change(on_set, "t", 7, 8)), ledger_full);
  const text_lines traces = field::take_traces();
  EXPECT_THAT(traces, contains_in_order(text_lines{
                          "(object_tracking_type_prb_delete) : delete_track_from_prb_entry failed "
                          "- The ledger is full",
                          "(object_tracking_type_prb_apply) : delete_track_from_prb_entry failed - "
                          "The ledger is full"}));
  EXPECT_FALSE(called(traces, "object_tracking_type_prb_create"));
  EXPECT_THAT(followers(), ElementsAre("t"));
}

TEST_F(probe_config, without_a_track_name_is_22_before_anything_is_opened) {
  ledger_change nameless;
  nameless.event = on_create;
  trace();
  EXPECT_EQ(object_tracking_type_prb_apply(nameless), invalid_argument);
  EXPECT_THAT(field::take_traces(), ElementsAre("Entering (object_tracking_type_prb_apply) : "));
}

TEST_F(probe_config, deleting_the_track_unties_it) {
  field::probe_result(7, 1);
  ASSERT_EQ(commit({set_number(track_path("t", "a"), 1), set_number(op_item("t"), 7)}), 0);
  trace();
  ASSERT_EQ(commit({remove_item(track_path("t", "a"))}), 0);
  EXPECT_THAT(field::take_traces(),
              contains_in_order(text_lines{
                  "Entering (object_tracking_track_delete) : ", " Found a entry for the track ",
                  " Found track_type : PRB. for track name t  Delete this track from prb entry",
                  "Entering (delete_track_from_prb_entry) : "}));
  EXPECT_EQ(hash_db_get_track_item("t"), nullptr);
  EXPECT_EQ(entry(), nullptr);
  EXPECT_EQ(published("t"), std::nullopt);
}

TEST_F(probe_config, a_track_that_cannot_be_untied_stays) {
  field::probe_result(7, 1);
  ASSERT_EQ(commit({set_number(track_path("t", "a"), 1), set_number(op_item("t"), 7)}), 0);
  ledger_control_fail_next(ledger_operation::set, ledger_full);
  trace();
  ASSERT_EQ(commit({remove_item(track_path("t", "a"))}), ledger_full);
  EXPECT_THAT(field::take_traces(),
              Contains("(object_tracking_track_delete) : delete_track_from_prb_entry failed - The "
                       "ledger is full"));
  EXPECT_THAT(followers(), ElementsAre("t"));
}

}  // namespace
}  // namespace ot::test
