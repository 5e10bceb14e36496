// Deleting tracks: what goes with them, what a failure leaves, and the delay that outlives them.
#include "config/lifecycle.h"

#include <chrono>

#include "platform/component_status.h"
#include "platform/ledger_status.h"
#include "platform/memory/controls.h"
#include "platform/memory/ledger_controls.h"
#include "sources/interface/table.h"
#include "state/publication.h"
#include "state/timers.h"
#include "tests/unit/service_fixture.h"

namespace ot::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

class lifecycle : public running_service {
 protected:
  void SetUp() override {
    running_service::SetUp();
    field::interface_added("Gi1");
  }
  void make_interface_track() {
    ASSERT_EQ(commit(interface_track("t", "Gi1")), 0);
    ASSERT_EQ(track("t").state, track_state::up);
    settle();
  }
  void make_track_without_type() {
    ASSERT_EQ(
        commit({set_number(track_path("t", "a"), 1), set_number(track_path("t", "delay_up"), 5)}),
        0);
    settle();
  }
  // Lets pending notifications leave and forgets everything said so far.
  void settle() {
    field::advance(milliseconds{100});
    take_notifications();
    forget_output();
  }
  int remove_track() { return commit({remove_item(track_path("t", "a"))}); }
  static bool exists() { return hash_db_get_track_item("t") != nullptr; }
};

TEST_F(lifecycle, create_and_set_of_the_existence_item_make_nothing) {
  trace();
  EXPECT_EQ(commit({set_number(track_path("t", "a"), 1)}), 0);
  EXPECT_EQ(commit({set_number(track_path("t", "a"), 2)}), 0);
  EXPECT_FALSE(exists());
  EXPECT_THAT(field::take_traces(), Contains("Entering (object_tracking_track_apply) : ").Times(2));
}

TEST_F(lifecycle, a_delete_without_a_name_is_22) {
  ledger_change change;
  change.event = ledger_event_delete;
  EXPECT_EQ(object_tracking_track_apply(change), 22);
  change.event = ledger_event_create;
  EXPECT_EQ(object_tracking_track_apply(change), 0);
}

TEST_F(lifecycle, deleting_an_absent_track_is_0_and_changes_nothing) {
  EXPECT_EQ(object_tracking_track_delete("t"), 0);
  settle();
  EXPECT_THAT(take_notifications(), IsEmpty());
}

TEST_F(lifecycle, a_track_without_type_goes_without_any_teardown) {
  make_track_without_type();
  trace();
  EXPECT_EQ(remove_track(), 0);
  EXPECT_FALSE(exists());
  EXPECT_THAT(field::take_traces(),
              contains_in_order(text_lines{
                  "Entering (object_tracking_track_apply) : ",
                  "(object_tracking_track_apply) : track t, LEDGER_EVENT_DELETE",
                  "Entering (object_tracking_track_delete) : ",
                  " Found a entry for the track ",
                  " track_type : Default.",
                  "Entering (object_tracking_delete_item_from_ledger) : ",
                  ("(object_tracking_delete_item_from_ledger) :  LEDGER_OPER_OT_CLIENT del of t "
                   "failed - No data"),
              }));
}

TEST_F(lifecycle, an_interface_track_is_untied_and_its_item_deleted) {
  make_interface_track();
  EXPECT_EQ(remove_track(), 0);
  EXPECT_FALSE(exists());
  ASSERT_NE(hash_db_get_interface_item("Gi1"), nullptr);
  EXPECT_EQ(hash_db_get_interface_item("Gi1")->tracks, nullptr);
  EXPECT_FALSE(published("t").has_value());
  EXPECT_THAT(field::take_messages(),
              ElementsAre("OT-SERVICES-6-TRACK_INFO: track t state Unknown"));
  field::advance(milliseconds{100});
  EXPECT_THAT(take_notifications(), ElementsAre("t set 0", "t delete 0"));
}

TEST_F(lifecycle, a_typed_track_is_not_traced_as_default) {
  make_interface_track();
  trace();
  EXPECT_EQ(remove_track(), 0);
  EXPECT_THAT(field::take_traces(), testing::Not(Contains(" track_type : Default.")));
}

TEST_F(lifecycle, a_failed_detach_keeps_the_track) {
  make_interface_track();
  trace();
  ledger_control_fail_next(ledger_operation::set, ledger_full);
  EXPECT_EQ(remove_track(), ledger_full);
  ASSERT_EQ(refusals.size(), 1U);
  EXPECT_TRUE(refusals[0].applied);
  ASSERT_TRUE(exists());
  EXPECT_EQ(track("t").type, track_type::interface);
  EXPECT_NE(hash_db_get_interface_item("Gi1")->tracks, nullptr);
  EXPECT_TRUE(published("t").has_value());
  const std::vector<std::string> traces = field::take_traces();
  EXPECT_THAT(traces, contains_in_order(text_lines{
                          "(object_tracking_track_delete) :delete_track_from_interface_entry "
                          "failed - The ledger is full",
                          "(object_tracking_track_apply) : object_tracking_track_delete failed - "
                          "The ledger is full",
                      }));
}

TEST_F(lifecycle, a_failed_ledger_delete_is_reported_after_the_record_has_gone) {
  make_track_without_type();
  trace();
  ledger_control_fail_next(ledger_operation::erase, ledger_storage_failure);
  EXPECT_EQ(remove_track(), ledger_storage_failure);
  EXPECT_FALSE(exists());
  EXPECT_THAT(field::take_traces(),
              Contains("(object_tracking_track_delete) : object_tracking_delete_item_from_ledger "
                       "failed - The ledger could not store the change"));
}

TEST_F(lifecycle, a_delay_that_runs_at_the_deletion_brings_the_item_back) {
  make_interface_track();
  ASSERT_EQ(commit({set_number(track_path("t", "delay_down"), 10)}), 0);
  field::link_down("Gi1");
  field::run_pending();
  field::advance(seconds{4});
  EXPECT_EQ(remove_track(), 0);
  EXPECT_FALSE(published("t").has_value());
  settle();
  field::advance(milliseconds{5'899});
  EXPECT_FALSE(published("t").has_value());
  field::advance(milliseconds{2});
  EXPECT_EQ(published("t"), 2U);
  EXPECT_FALSE(exists());
  EXPECT_THAT(field::take_messages(), IsEmpty());  // there is no track whose state would change
  field::advance(milliseconds{100});
  EXPECT_THAT(take_notifications(), ElementsAre("t set 2"));
}

TEST_F(lifecycle, untying_an_up_track_with_a_delay_brings_its_item_back_as_down) {
  make_interface_track();
  ASSERT_EQ(commit({set_number(track_path("t", "delay_down"), 10)}), 0);
  EXPECT_EQ(remove_track(), 0);
  EXPECT_FALSE(published("t").has_value());
  field::advance(seconds{10});
  EXPECT_EQ(published("t"), 2U);
}

TEST_F(lifecycle, a_track_made_again_meanwhile_keeps_its_own_state) {
  make_interface_track();
  ASSERT_EQ(commit({set_number(track_path("t", "delay_down"), 5)}), 0);
  ASSERT_EQ(commit({set_text("/cfg/gl/object_tracking/track/l/type/list/0x3/object/t/a", "")}),
            ledger_wrong_kind);
  ASSERT_EQ(commit({set_number("/cfg/gl/object_tracking/track/l/type/list/0x3/object/t/a", 0)}), 0);
  field::link_down("Gi1");
  field::run_pending();
  ASSERT_EQ(remove_track(), 0);
  field::interface_added("Gi2");
  ASSERT_EQ(commit(interface_track("t", "Gi2")), 0);
  ASSERT_EQ(published("t"), 1U);
  settle();
  field::advance(seconds{10});
  EXPECT_EQ(published("t"), 1U);
  EXPECT_EQ(track("t").state, track_state::up);
  EXPECT_EQ(track("l").state, track_state::up);
  EXPECT_THAT(take_notifications(), IsEmpty());
}

TEST_F(lifecycle, lists_learn_that_a_predecessor_is_no_more) {
  make_interface_track();
  ASSERT_EQ(commit({set_number(track_path("t", "delay_down"), 5),
                    set_number("/cfg/gl/object_tracking/track/l/type/list/0x3/object/t/a", 0)}),
            0);
  field::advance(milliseconds{100});
  ASSERT_EQ(track("l").state, track_state::up);
  field::link_down("Gi1");
  field::run_pending();
  ASSERT_EQ(remove_track(), 0);
  ASSERT_EQ(commit({set_number(track_path("t", "delay_up"), 5)}), 0);  // follows nothing yet
  field::advance(milliseconds{100});
  EXPECT_EQ(track("l").state, track_state::down);
}

// --- At the next start ---------------------------------------------------------------------------

TEST_F(lifecycle, a_published_state_without_a_track_is_gone_after_the_next_start) {
  make_interface_track();
  ledger_control_put("/oper/gl/object-tracking/ghost", ledger_kind::u32, bytes_of_numbers({1}));
  ledger_control_put("/oper/gl/object-tracking/tt", ledger_kind::u32, bytes_of_numbers({1}));
  ASSERT_EQ(restart(), 0);
  EXPECT_EQ(published("ghost"), std::nullopt);
  EXPECT_EQ(published("tt"), std::nullopt);
  EXPECT_EQ(published("t"), 1U);
  field::advance(milliseconds{100});
  EXPECT_THAT(take_notifications(), UnorderedElementsAre("ghost delete 0", "tt delete 0"));
}

TEST_F(lifecycle, a_track_that_waits_for_its_service_keeps_its_state) {
  field::route_added("10.1.0.0", 16, "Gi1");
  ASSERT_EQ(commit({set_number(track_path("r", "delay_down"), 5),
                    set_tuple(track_path("r", "type/route/0x2/info/ip_address"),
                              {0x0000010aU, 0x0000ffffU})}),
            0);
  ASSERT_EQ(published("r"), 1U);
  stop();
  field::fib_gone();
  ASSERT_EQ(start(2), 0);
  EXPECT_EQ(published("r"), 1U);
  field::take_messages();
  field::fib_back();
  field::advance(seconds{10});
  EXPECT_EQ(track("r").state, track_state::up);
  EXPECT_THAT(field::take_messages(), IsEmpty());
}

TEST_F(lifecycle, a_track_changes_its_type_by_deletion_and_creation) {
  make_interface_track();
  const std::vector<ledger_proposal> list = {set_number(track_path("t", "a"), 1),
                                             set_number(track_path("t", "type/list/0x3/a"), 1)};
  EXPECT_EQ(commit(list), track_type_conflict);
  EXPECT_EQ(commit({remove_item(track_path("t", "a")),
                    remove_item(track_path("t", "type/interface/0x1/a")),
                    remove_item(track_path("t", "type/interface/0x1/info/interface"))}),
            0);
  EXPECT_EQ(commit(list), 0);
}

}  // namespace
}  // namespace ot::test
