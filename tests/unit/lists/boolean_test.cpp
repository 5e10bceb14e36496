// Boolean lists: configuration of their members, and the rule.
#include "lists/boolean_list.h"

#include "lists/configuration.h"
#include "platform/component_status.h"
#include "platform/err_string.h"
#include "platform/ledger_status.h"
#include "state/list_evaluation.h"
#include "tests/unit/lists/fixture.h"

namespace ot::test {
namespace {

class boolean_lists : public list_fixture {};

TEST_F(boolean_lists, and_is_up_when_every_member_is) {
  object("a", true);
  object("b", true);
  list("both", 3, {{"a"}, {"b"}});
  EXPECT_EQ(state("both"), track_state::up);
  field::link_down("b");
  settle();
  EXPECT_EQ(state("both"), track_state::down);
  EXPECT_EQ(source("both"), track_state::down);
}

TEST_F(boolean_lists, or_is_up_when_one_member_is) {
  object("a", false);
  object("b", true);
  list("any", 4, {{"a"}, {"b"}});
  EXPECT_EQ(state("any"), track_state::up);
  field::link_down("b");
  settle();
  EXPECT_EQ(state("any"), track_state::down);
}

TEST_F(boolean_lists, a_missing_member_counts_as_down) {
  object("a", true);
  list("both", 3, {{"a"}, {"nobody"}});
  list("any", 4, {{"nobody"}});
  list("inverse", 4, {{"nobody", 1}});
  list("all_inverse", 3, {{"nobody", 1}, {"a"}});
  EXPECT_EQ(state("both"), track_state::down);
  EXPECT_EQ(state("any"), track_state::down);
  EXPECT_EQ(state("inverse"), track_state::up);
  EXPECT_EQ(state("all_inverse"), track_state::up);
}

TEST_F(boolean_lists, an_unknown_member_counts_as_down) {
  apply({set_number(track_path("blank", "delay_up"), 3)});
  EXPECT_EQ(state("blank"), track_state::unknown);
  list("both", 3, {{"blank"}});
  list("inverse", 4, {{"blank", 1}});
  EXPECT_EQ(state("both"), track_state::down);
  EXPECT_EQ(state("inverse"), track_state::up);
}

TEST_F(boolean_lists, a_member_may_come_and_go) {
  list("any", 4, {{"late"}});
  EXPECT_EQ(state("any"), track_state::down);
  object("late", true);
  EXPECT_EQ(state("any"), track_state::up);
  apply({set_number(track_path("late", "a"), 1)});
  apply({remove_item(track_path("late", "a"))});
  settle();
  EXPECT_EQ(state("any"), track_state::down);
  EXPECT_EQ(members("any"), "late=0");
}

TEST_F(boolean_lists, an_empty_list_is_down) {
  object("a", true);
  list("both", 3, {{"a"}});
  list("any", 4, {{"a"}});
  apply({remove_item(member_item("both", 3, "a")), remove_item(member_item("any", 4, "a"))});
  settle();
  EXPECT_EQ(members("both"), "");
  EXPECT_EQ(state("both"), track_state::down);
  EXPECT_EQ(state("any"), track_state::down);
  const std::uint32_t before = publications("both");
  object_tracking_calc_tracks_state_after_timer_expired();
  EXPECT_EQ(publications("both"), before) << "an unchanged result is not published";
}

TEST_F(boolean_lists, members_run_from_newest_to_oldest) {
  list("l", 3, {{"a"}, {"b"}, {"c"}});
  EXPECT_EQ(members("l"), "c=0 b=0 a=0");
  apply({set_number(member_item("l", 3, "a"), 7)});
  EXPECT_EQ(members("l"), "a=1 c=0 b=0") << "a changed member moves to the head";
}

TEST_F(boolean_lists, an_unchanged_member_requests_nothing) {
  list("l", 3, {{"a", 1}, {"b"}});
  ASSERT_FALSE(calculation_requested());
  apply({set_number(member_item("l", 3, "a"), 1)});
  EXPECT_EQ(members("l"), "b=0 a=1");
  EXPECT_FALSE(calculation_requested());
  apply({set_number(member_item("l", 3, "a"), 0)});
  EXPECT_TRUE(calculation_requested());
}

TEST_F(boolean_lists, refuses_itself_but_not_another_spelling) {
  EXPECT_EQ(commit({set_number(member_item("l", 3, "l"), 0)}), list_names_itself);
  ASSERT_EQ(refusals.size(), 1U);
  EXPECT_EQ(refusals[0].text, err_string(list_names_itself));
  apply({set_number(member_item("l", 3, "L"), 0)});
  EXPECT_EQ(members("l"), "L=0");
}

TEST_F(boolean_lists, a_track_with_delays_only_becomes_a_list) {
  apply({set_number(track_path("l", "delay_down"), 5)});
  object("a", true);
  list("l", 3, {{"a"}});
  EXPECT_EQ(track("l").type, track_type::boolean_and);
  EXPECT_EQ(track("l").delay_down, 5);
  EXPECT_EQ(commit({set_number(list_item("l", 4, "a"), 1)}), track_type_conflict);
}

TEST_F(boolean_lists, a_set_without_an_old_value_adds_a_second_member) {
  direct_change first(ledger_event_create, "l", 3, "a", 0);
  direct_change second(ledger_event_set, "l", 3, "a", 1);
  direct_change gone(ledger_event_delete, "l", 3, "a", 0);
  EXPECT_EQ(object_tracking_type_list_object_apply(first.get()), 0);
  EXPECT_EQ(object_tracking_type_list_object_apply(second.get()), 0);
  EXPECT_EQ(members("l"), "a=1 a=0");
  EXPECT_EQ(object_tracking_type_list_object_apply(gone.get()), 0);
  EXPECT_EQ(members("l"), "a=0") << "the newest goes first";
  EXPECT_EQ(object_tracking_type_list_object_apply(gone.get()), 0);
  EXPECT_EQ(object_tracking_type_list_object_apply(gone.get()), 0) << "no match is no error";
  EXPECT_EQ(members("l"), "");
}

TEST_F(boolean_lists, of_several_events_the_first_of_create_set_delete_counts) {
  direct_change create_and_set(3, "l", 3, "a", 1);
  create_and_set.from(0);
  EXPECT_EQ(object_tracking_type_list_object_apply(create_and_set.get()), 0);
  EXPECT_EQ(object_tracking_type_list_object_apply(create_and_set.get()), 0);
  EXPECT_EQ(members("l"), "a=1 a=1") << "a create removes nothing";
  direct_change set_and_delete(6, "l", 3, "a", 0);
  EXPECT_EQ(object_tracking_type_list_object_apply(set_and_delete.from(1).get()), 0);
  EXPECT_EQ(members("l"), "a=0 a=1");
}

TEST_F(boolean_lists, values_are_compared_as_numbers_before_they_become_a_not) {
  list("l", 3, {{"a", 7}, {"b"}});
  EXPECT_EQ(members("l"), "b=0 a=1");
  apply({set_number(member_item("l", 3, "a"), 1)});
  EXPECT_EQ(members("l"), "a=1 b=0") << "7 was another value";
}

TEST_F(boolean_lists, the_type_of_a_member_becomes_the_configured_type) {
  ASSERT_EQ(object_tracking_type_bool_create("new", track_type::boolean_or, "a", 0), 0);
  EXPECT_EQ(track("new").configured_type, 4U);
  apply({set_number(track_path("old", "delay_up"), 1)});
  ASSERT_EQ(object_tracking_type_bool_create("old", track_type::boolean_and, "a", 0), 0);
  EXPECT_EQ(track("old").configured_type, 3U);
}

TEST_F(boolean_lists, dispatches_by_the_list_type) {
  for (const std::uint32_t type : {1U, 2U, 5U, 6U, 9U, 10U}) {
    direct_change change(ledger_event_create, "l", type, "a", 0);
    EXPECT_EQ(object_tracking_type_list_object_apply(change.get()), 0);
    EXPECT_EQ(hash_db_get_track_item("l"), nullptr) << type;
  }
  direct_change untyped(ledger_event_create, "l", 0, "a", 0);
  EXPECT_EQ(object_tracking_type_list_object_apply(untyped.get()), invalid_argument);
  direct_change cut(ledger_event_create, "l", 3, "a", 0);
  for (cut.count = 0; cut.count < 3; ++cut.count) {
    EXPECT_EQ(object_tracking_type_list_object_apply(cut.get()), invalid_argument);
    EXPECT_EQ(object_tracking_type_bool_object_apply(cut.get()), invalid_argument);
  }
}

TEST_F(boolean_lists, long_names_are_cut_when_stored_and_compared_whole) {
  const std::string name(40, 'm');
  ASSERT_EQ(object_tracking_type_bool_create("l", track_type::boolean_and, name.c_str(), 0), 0);
  EXPECT_EQ(members("l"), name.substr(0, 39) + "=0");
  delete_track_bool_object("l", name.c_str());
  EXPECT_EQ(members("l"), name.substr(0, 39) + "=0");
  delete_track_bool_object("l", name.substr(0, 39).c_str());
  EXPECT_EQ(members("l"), "");
  EXPECT_EQ(delete_track_bool_object("nobody", "m"), 0);
}

TEST_F(boolean_lists, removing_all_members_withdraws_an_up_state) {
  object("a", true);
  list("l", 3, {{"a"}});
  const std::uint32_t before = publications("l");
  EXPECT_EQ(object_tracking_delete_track_bool_objects_by_name("l"), 0);
  EXPECT_EQ(state("l"), track_state::unknown);
  EXPECT_EQ(publications("l"), before + 1);
  EXPECT_EQ(track("l").type, track_type::none);
  list("m", 3, {{"nobody"}});
  const std::uint32_t down = publications("m");
  EXPECT_EQ(object_tracking_delete_track_bool_objects_by_name("m"), 0);
  EXPECT_EQ(state("m"), track_state::down);
  EXPECT_EQ(publications("m"), down);
  EXPECT_EQ(object_tracking_delete_track_bool_objects_by_name("nobody"), 0);
  EXPECT_EQ(object_tracking_delete_track_bool_objects(nullptr), 0);
}

TEST_F(boolean_lists, a_failed_withdrawal_keeps_the_members) {
  object("a", true);
  list("l", 3, {{"a"}});
  apply({set_number(track_path("l", "a"), 1)});
  ledger_control_fail_next(ledger_operation::set, ledger_storage_failure);
  EXPECT_EQ(commit({remove_item(track_path("l", "a"))}), ledger_storage_failure);
  EXPECT_EQ(members("l"), "a=0");
}

}  // namespace
}  // namespace ot::test
