// Tying tracks to operations and untying them.
#include "platform/ledger_status.h"
#include "platform/memory/ledger_controls.h"
#include "tests/unit/sources/probe/fixture.h"

namespace ot::test {
namespace {

using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* find_track = "Entering (hash_db_get_track_item) : ";
constexpr const char* find_entry = "Entering (hash_db_get_prb_item) : ";

class probe_track : public probe_service {
 protected:
  void SetUp() override {
    probe_service::SetUp();
    field::probe_result(7, 1);
  }
};

TEST_F(probe_track, an_entry_takes_later_tracks_at_its_head) {
  track_name_node* first = new_track_name_node("a");
  track_name_node* second = new_track_name_node("b");
  trace();
  ASSERT_EQ(insert_track_to_prb_entry(first, track_state::down, 7), 0);
  EXPECT_THAT(field::take_traces(),
              ElementsAre("Entering (insert_track_to_prb_entry) : ", find_entry, "lookup over ",
                          "lookup == NULL", "calling hash_db_add_new_prb_item ",
                          "Entering (hash_db_add_new_prb_item) : "));
  ASSERT_EQ(insert_track_to_prb_entry(second, track_state::up, 7), 0);
  EXPECT_THAT(field::take_traces(), ElementsAre("Entering (insert_track_to_prb_entry) : ",
                                                find_entry, "lookup over ", " lookup != NULL"));
  EXPECT_THAT(followers(), ElementsAre("b", "a"));
  EXPECT_EQ(entry()->state, 2U);
}

TEST_F(probe_track, operations_are_distinguished_by_their_signed_number) {
  for (const std::int32_t op_id : {0, 1, -1, 2147483647, -2147483647 - 1}) {
    ASSERT_EQ(create(("t" + std::to_string(op_id)).c_str(), op_id), 0);
    EXPECT_EQ(entry(op_id)->op_id, op_id);
    EXPECT_THAT(followers(op_id), ElementsAre("t" + std::to_string(op_id)));
  }
  EXPECT_EQ(hash_db_count(prb_table), 5U);
  EXPECT_EQ(hash_db_delete_prb_item(9), invalid_argument);
}

TEST_F(probe_track, compares_by_the_first_field_without_sign) {
  const std::uint32_t low[] = {1, 9};
  const std::uint32_t high[] = {0xffffffff, 0};
  EXPECT_EQ(track_prb_compare(low, high), -1);
  EXPECT_EQ(track_prb_compare(high, low), 1);
  EXPECT_EQ(track_prb_compare(low, low), 0);
}

TEST_F(probe_track, untying_a_missing_track_is_0_and_reported) {
  trace();
  EXPECT_EQ(delete_track_from_prb_entry("t"), 0);
  EXPECT_THAT(field::take_traces(),
              ElementsAre("Entering (delete_track_from_prb_entry) : ", find_track,
                          "(delete_track_from_prb_entry) :track t not found - nothing to delete"));
  EXPECT_EQ(object_tracking_type_prb_delete("t"), 0);
  EXPECT_THAT(field::take_traces(),
              ElementsAre("(object_tracking_type_prb_delete) delete track t:",
                          "Entering (delete_track_from_prb_entry) : ", find_track,
                          "(delete_track_from_prb_entry) :track t not found - nothing to delete",
                          find_track));
}

TEST_F(probe_track, untying_the_last_track_ends_the_poll_and_the_entry) {
  field::probe_result(7, 2);
  ASSERT_EQ(create("t"), 0);
  trace();
  EXPECT_EQ(delete_track_from_prb_entry("t"), 0);
  EXPECT_THAT(field::take_traces(),
              ElementsAre("Entering (delete_track_from_prb_entry) : ", find_track, find_entry,
                          "(delete_track_from_prb_entry) : op_id 7 found in hash find track t and "
                          "delete it",
                          "(delete_track_from_prb_entry) :no more tracks for op_id : 7  - delete "
                          "prb entry from hash ",
                          "Entering (stop_ot_timer) : ", "Entering (hash_db_delete_prb_item) : "));
  EXPECT_EQ(entry(), nullptr);
  EXPECT_FALSE(polled("t"));
  EXPECT_EQ(track("t").type, track_type::probe);
  EXPECT_EQ(track("t").state, track_state::down);
}

TEST_F(probe_track, untying_one_of_several_keeps_the_entry_and_its_poll) {
  ASSERT_EQ(create("a"), 0);
  ASSERT_EQ(create("b"), 0);
  EXPECT_EQ(object_tracking_type_prb_delete("a"), 0);
  EXPECT_THAT(followers(), ElementsAre("b"));
  EXPECT_EQ(track("a").type, track_type::none);
  EXPECT_EQ(track("a").state, track_state::down);
  // Nothing has stopped its poll.
  next_poll();
  EXPECT_EQ(track("a").state, track_state::up);
  EXPECT_EQ(object_tracking_type_prb_delete("b"), 0);
  EXPECT_EQ(entry(), nullptr);
  EXPECT_FALSE(polled("b"));
}

TEST_F(probe_track, an_up_track_is_published_as_down_at_once_when_it_is_let_go) {
  ASSERT_EQ(create("t"), 0);
  ASSERT_EQ(commit({set_number(track_path("t", "delay_down"), 60)}), 0);
  trace();
  EXPECT_EQ(object_tracking_type_prb_delete("t"), 0);
  const text_lines traces = field::take_traces();
  const std::string publisher = "(object_tracking_set_track_state_in_ledger_after_timer_expired)";
  EXPECT_THAT(
      traces,
      contains_in_order(text_lines{
          "(object_tracking_type_prb_delete) delete track t:",
          "Entering (delete_track_from_prb_entry) : ", "Entering (stop_ot_timer) : ",
          publisher + " : track t state Track_Down",
          "(delete_track_from_prb_entry) : op_id 7 found in hash find track t and delete it"}));
  EXPECT_EQ(published("t"), 2U);
  EXPECT_EQ(track("t").source_state, track_state::down);
  EXPECT_EQ(track("t").type, track_type::none);
  EXPECT_THAT(field::take_messages(),
              ElementsAre("OT-SERVICES-6-TRACK_INFO: track t state Track_Down"));
}

TEST_F(probe_track, a_pending_change_to_up_does_not_come_after_letting_go) {
  field::probe_result(7, 2);
  ASSERT_EQ(create("t"), 0);
  ASSERT_EQ(commit({set_number(track_path("t", "delay_up"), 30)}), 0);
  field::probe_result(7, 1);
  next_poll();
  ASSERT_TRUE(wtm_timer_leaf_running(track("t").delay_timer));
  EXPECT_EQ(object_tracking_type_prb_delete("t"), 0);
  EXPECT_FALSE(wtm_timer_leaf_running(track("t").delay_timer));
  let_pass(seconds{60});
  EXPECT_EQ(track("t").state, track_state::down);
}

TEST_F(probe_track, a_track_that_is_not_up_is_let_go_without_a_word) {
  field::probe_stopped(7);
  ASSERT_EQ(create("t"), 0);
  EXPECT_EQ(object_tracking_type_prb_delete("t"), 0);
  EXPECT_EQ(track("t").state, track_state::unknown);
  EXPECT_EQ(track("t").state_change_counter, 0U);
  EXPECT_THAT(field::take_messages(), IsEmpty());
}

TEST_F(probe_track, that_cannot_be_published_as_down_stays_tied) {
  ASSERT_EQ(create("t"), 0);
  ledger_control_fail_next(ledger_operation::set, ledger_full);
  trace();
  EXPECT_EQ(object_tracking_type_prb_delete("t"), ledger_full);
  EXPECT_EQ(field::take_traces().back(),
            "(object_tracking_type_prb_delete) : delete_track_from_prb_entry failed - The ledger "
            "is full");
  EXPECT_EQ(track("t").source_state, track_state::down);
  EXPECT_EQ(track("t").type, track_type::probe);
  EXPECT_THAT(followers(), ElementsAre("t"));
  EXPECT_TRUE(polled("t"));
}

TEST_F(probe_track, without_an_entry_only_loses_its_type) {
  ASSERT_EQ(create("t"), 0);
  drop_all_probes();
  ASSERT_EQ(prb_table_create(), 0);
  EXPECT_EQ(object_tracking_type_prb_delete("t"), 0);
  EXPECT_EQ(track("t").type, track_type::none);
  EXPECT_EQ(track("t").state, track_state::down);
  EXPECT_TRUE(polled("t"));
}

}  // namespace
}  // namespace ot::test
