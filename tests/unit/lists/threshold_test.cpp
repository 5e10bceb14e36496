// Threshold lists: configuration of limits and weights, and the rule.
#include "lists/threshold_list.h"

#include <limits>

#include "platform/component_status.h"
#include "platform/memory/alloc_faults.h"
#include "tests/unit/lists/fixture.h"

namespace ot::test {
namespace {

constexpr int weight = 7;
constexpr int percentage = 8;

class threshold_lists : public list_fixture {
 protected:
  void set_weight(const std::string& name, std::uint32_t value) {
    apply({set_number(member_item("l", weight, name), value)});
    settle();
  }
};

TEST_F(threshold_lists, is_up_between_the_limits_only) {
  object("a", true);
  limits("l", weight, "0xa", 5);
  list("l", weight, {{"a", 4}});
  EXPECT_EQ(state("l"), track_state::down);
  for (const std::uint32_t value : {5U, 7U, 10U}) {
    set_weight("a", value);
    EXPECT_EQ(state("l"), track_state::up) << value;
  }
  for (const std::uint32_t value : {11U, 4U}) {
    set_weight("a", value);
    EXPECT_EQ(state("l"), track_state::down) << value;
  }
}

TEST_F(threshold_lists, counts_only_members_that_are_up) {
  object("a", true);
  object("b", false);
  limits("l", weight, "0x64", 30);
  list("l", weight, {{"a", 10}, {"b", 20}, {"nobody", 40}});
  EXPECT_EQ(state("l"), track_state::down);
  field::link_up("b");
  settle();
  EXPECT_EQ(state("l"), track_state::up);
}

TEST_F(threshold_lists, truncates_the_percentage) {
  object("a", true);
  object("b", false);
  limits("third", percentage, "0x21", 32);
  list("third", percentage, {{"a"}, {"b"}, {"nobody"}});
  EXPECT_EQ(state("third"), track_state::up) << "33";
  limits("two_thirds", percentage, "0x42", 65);
  list("two_thirds", percentage, {{"a"}, {"b"}, {"nobody"}});
  EXPECT_EQ(state("two_thirds"), track_state::down);
  field::link_up("b");
  settle();
  EXPECT_EQ(state("two_thirds"), track_state::up) << "66";
  EXPECT_EQ(state("third"), track_state::down) << "above its up limit";
}

TEST_F(threshold_lists, a_percentage_member_weighs_one) {
  list("l", percentage, {{"a", 50}, {"b"}});
  EXPECT_EQ(members("l"), "b=1 a=1");
  apply({set_number(member_item("l", percentage, "b"), 9)});
  EXPECT_EQ(members("l"), "b=1 a=1");
}

TEST_F(threshold_lists, sums_and_compares_unsigned) {
  object("a", true);
  object("b", true);
  limits("l", weight, "0xffffffff", 0x80000000);
  list("l", weight, {{"a", std::numeric_limits<std::uint32_t>::max()}});
  EXPECT_EQ(state("l"), track_state::up);
  apply({set_number(member_item("l", weight, "b"), 2)});
  settle();
  EXPECT_EQ(state("l"), track_state::down) << "the sum wraps to 1";
}

TEST_F(threshold_lists, judges_members_before_their_delays) {
  object("a", true);
  apply({set_number(track_path("a", "delay_down"), 60)});
  limits("l", weight, "0x2", 1);
  list("l", weight, {{"a", 1}});
  list("b", 3, {{"a"}});
  ASSERT_EQ(state("l"), track_state::up);
  field::link_down("a");
  apply({set_number(member_item("l", weight, "nobody"), 1)});
  settle();
  EXPECT_EQ(state("a"), track_state::up);
  EXPECT_EQ(source("a"), track_state::down);
  EXPECT_EQ(state("l"), track_state::down) << "by the source state";
  EXPECT_EQ(state("b"), track_state::up) << "by the published state";
}

TEST_F(threshold_lists, without_members_or_limits_is_down) {
  object("a", true);
  limits("l", weight, "0x5", 0);
  EXPECT_EQ(track("l").type, track_type::threshold_weight);
  EXPECT_EQ(track("l").threshold_up, 5U);
  EXPECT_EQ(state("l"), track_state::down);
  list("m", weight, {{"a", 1}});
  EXPECT_EQ(state("m"), track_state::down) << "limits 0 and 0";
}

TEST_F(threshold_lists, refuses_limits_that_are_not_apart) {
  for (const std::uint32_t down : {5U, 6U, 0xffffffffU}) {
    EXPECT_EQ(commit({set_number(limits_item("l", weight, "0x5"), down)}),
              threshold_limits_crossed);
    ASSERT_EQ(refusals.size(), 1U);
    EXPECT_EQ(refusals[0].text, "Threshold Up value should be > Threshold Down Value");
  }
  EXPECT_EQ(commit({set_number(limits_item("l", weight, "0x0"), 0)}), invalid_argument);
  EXPECT_EQ(commit({set_number(limits_item("l", 0, "0x5"), 1)}), invalid_argument);
  EXPECT_EQ(hash_db_get_track_item("l"), nullptr);
}

TEST_F(threshold_lists, a_refusal_without_memory_has_no_text) {
  const ledger_path_field fields[] = {{"l", 0}, {"0x7", 7}, {"0x5", 5}};
  ledger_value down;
  ASSERT_EQ(ledger_value_assign(down, ledger_kind::u32, bytes_of_numbers({9})), 0);
  const ledger_change change{ledger_event_create, fields, nullptr, &down};
  ledger_verdict verdict;
  {
    const alloc_faults faults{0};
    EXPECT_EQ(object_tracking_type_threshold_object_limits_verify(change, verdict),
              threshold_limits_crossed);
  }
  EXPECT_EQ(verdict.accept, 0U);
  EXPECT_EQ(verdict.text, nullptr);
}

TEST_F(threshold_lists, changes_limits) {
  object("a", true);
  limits("l", weight, "0x5", 2);
  list("l", weight, {{"a", 7}});
  EXPECT_EQ(state("l"), track_state::down);
  apply({remove_item(limits_item("l", weight, "0x5")),
         set_number(limits_item("l", weight, "0x9"), 2)});
  settle();
  EXPECT_EQ(track("l").threshold_up, 9U);
  EXPECT_EQ(state("l"), track_state::up);
  limits("l", weight, "0x9", 8);
  EXPECT_EQ(track("l").threshold_down, 8U);
  EXPECT_EQ(state("l"), track_state::down);
}

TEST_F(threshold_lists, deleted_limits_stay_in_force) {
  object("a", true);
  limits("l", weight, "0x5", 2);
  list("l", weight, {{"a", 3}});
  apply({remove_item(limits_item("l", weight, "0x5"))});
  EXPECT_TRUE(calculation_requested());
  settle();
  EXPECT_EQ(track("l").threshold_up, 5U);
  EXPECT_EQ(track("l").threshold_down, 2U);
  EXPECT_EQ(state("l"), track_state::up);
}

TEST_F(threshold_lists, unchanged_limits_and_weights_apply_to_nothing) {
  limits("l", weight, "0x5", 2);
  list("l", weight, {{"a", 3}});
  const ledger_path_field fields[] = {{"l", 0}, {"0x7", 7}, {"0x5", 5}};
  ledger_value down;
  ASSERT_EQ(ledger_value_assign(down, ledger_kind::u32, bytes_of_numbers({2})), 0);
  EXPECT_EQ(
      object_tracking_type_threshold_object_crt_apply({ledger_event_set, fields, &down, &down}), 0);
  EXPECT_FALSE(calculation_requested());
  apply({set_number(member_item("l", weight, "a"), 3)});
  EXPECT_FALSE(calculation_requested());
  apply({set_number(limits_item("l", weight, "0x5"), 2)});
  EXPECT_TRUE(calculation_requested()) << "the verifier of accepted limits requests one";
}

TEST_F(threshold_lists, a_set_of_limits_makes_a_missing_track) {
  const ledger_path_field fields[] = {{"l", 0}, {"0x8", 8}, {"0x5", 5}};
  ledger_value down;
  ASSERT_EQ(ledger_value_assign(down, ledger_kind::u32, bytes_of_numbers({2})), 0);
  const ledger_change change{ledger_event_set, fields, nullptr, &down};
  EXPECT_EQ(object_tracking_type_threshold_object_crt_apply(change), 0);
  EXPECT_EQ(track("l").type, track_type::threshold_percentage);
  EXPECT_EQ(track("l").threshold_up, 5U);
  EXPECT_EQ(object_tracking_type_threshold_object_crt_apply({}), invalid_argument);
}

TEST_F(threshold_lists, removing_all_members_withdraws_an_up_state) {
  object("a", true);
  limits("l", weight, "0x5", 1);
  list("l", weight, {{"a", 3}});
  ASSERT_EQ(state("l"), track_state::up);
  ot_track* track = hash_db_get_track_item("l");
  EXPECT_EQ(ot_thld_del_track_objects(track), 0);
  EXPECT_EQ(state("l"), track_state::unknown);
  EXPECT_EQ(members("l"), "");
  EXPECT_EQ(ot_thld_del_track_objects(nullptr), invalid_argument);
}

TEST_F(threshold_lists, sets_a_weight_in_place) {
  list("l", weight, {{"a", 3}, {"b", 4}});
  ot_thld_set_obj_weight_in_track("l", "a", 9);
  ot_thld_set_obj_weight_in_track("l", "nobody", 9);
  ot_thld_set_obj_weight_in_track("nobody", "a", 9);
  EXPECT_EQ(members("l"), "b=4 a=9");
  ot_thld_del_obj_from_track("nobody", "a");
  ot_thld_del_obj_from_track("l", "a");
  EXPECT_EQ(members("l"), "b=4");
}

}  // namespace
}  // namespace ot::test
