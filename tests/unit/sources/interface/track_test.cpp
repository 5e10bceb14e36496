// Tying tracks to interfaces and untying them, and pushing an interface's state to its tracks.
#include "sources/interface/track.h"

#include <chrono>

#include "platform/ledger_status.h"
#include "platform/memory/alloc_faults.h"
#include "platform/memory/controls.h"
#include "platform/memory/ledger_controls.h"
#include "platform/status.h"
#include "state/ledger_state.h"
#include "state/timers.h"
#include "tests/unit/service_fixture.h"

namespace ot::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

class interface_track_test : public running_service {
 protected:
  static int tie(const char* interface, const char* name) {
    return object_tracking_type_interface_create(interface, name);
  }
  static int untie(const char* interface, const char* name) {
    return delete_track_from_interface_entry(interface, name);
  }
  static interface_entry* entry(const char* name) { return hash_db_get_interface_item(name); }
  static text_lines tracks_of(const char* interface) {
    text_lines names;
    for (const track_name_node* node = entry(interface)->tracks; node; node = node->next) {
      names.emplace_back(node->name.view());
    }
    return names;
  }
};

class tying : public interface_track_test {};

TEST_F(tying, a_new_track_takes_the_interfaces_state_and_publishes_it) {
  field::interface_added("Gi1", true);
  field::interface_added("Gi2", false);
  field::run_pending();
  field::set_wall_clock(1'700'000'555);
  ASSERT_EQ(tie("Gi1", "a"), 0);
  ASSERT_EQ(tie("Gi2", "b"), 0);
  EXPECT_EQ(track("a").type, track_type::interface);
  EXPECT_EQ(track("a").object.interface.name, "Gi1");
  EXPECT_EQ(track("a").seconds_last_change, 1'700'000'555);
  EXPECT_EQ(track("a").source_state, track_state::up);
  EXPECT_EQ(track("a").state, track_state::up);
  EXPECT_EQ(published("a"), 1U);
  EXPECT_EQ(track("b").source_state, track_state::down);
  EXPECT_EQ(track("b").state, track_state::down);
  EXPECT_EQ(published("b"), 2U);
  EXPECT_THAT(field::take_messages(),
              ElementsAre("OT-SERVICES-6-TRACK_INFO: track a state Track_Up",
                          "OT-SERVICES-6-TRACK_INFO: track b state Track_Down"));
}

TEST_F(tying, an_administratively_down_interface_is_down) {
  field::interface_added("Gi1");
  field::admin_down("Gi1");
  field::run_pending();
  ASSERT_EQ(tie("Gi1", "a"), 0);
  EXPECT_EQ(track("a").state, track_state::down);
}

TEST_F(tying, either_state_that_the_interface_manager_calls_down_is_down) {
  field::interface_added("Gi1");
  field::admin_down("Gi1");  // IFM_STATE_ADMIN_DOWN when it is asked, before any notification
  field::interface_added("Gi2", false);
  ASSERT_EQ(tie("Gi1", "a"), 0);
  ASSERT_EQ(tie("Gi2", "b"), 0);
  EXPECT_EQ(entry("Gi1")->effective_state, 1U);
  EXPECT_EQ(entry("Gi2")->effective_state, 2U);
  EXPECT_EQ(track("a").source_state, track_state::down);
  EXPECT_EQ(track("b").source_state, track_state::down);
}

TEST_F(tying, an_interface_that_does_not_exist_leaves_the_track_unknown) {
  ASSERT_EQ(tie("Gi9", "a"), 0);
  EXPECT_EQ(track("a").source_state, track_state::unknown);
  EXPECT_EQ(track("a").state, track_state::unknown);
  EXPECT_EQ(published("a"), 2U);
  const interface_entry* made = entry("Gi9");
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(made->ifname, "Gi9");
  EXPECT_EQ(made->ifhandle, 0U);
  EXPECT_EQ(made->effective_state, 17U);
  EXPECT_EQ(made->reported_state, 17U);
  EXPECT_EQ(made->redundancy, 1U);
  EXPECT_THAT(tracks_of("Gi9"), ElementsAre("a"));
}

TEST_F(tying, a_new_track_without_known_state_begins_published_as_down) {
  ASSERT_EQ(tie("Gi9", "a"), 0);
  // Down to unknown was a change.
  EXPECT_THAT(field::take_messages(),
              ElementsAre("OT-SERVICES-6-TRACK_INFO: track a state Unknown"));
  EXPECT_EQ(track("a").state_change_counter, 1U);
}

TEST_F(tying, the_new_tracks_timer_carries_kind_3_and_the_new_state) {
  field::interface_added("Gi1");
  ASSERT_EQ(tie("Gi1", "a"), 0);
  const ot_timer_ctx* ctx = get_timer_ctx(track("a").delay_timer);
  ASSERT_NE(ctx, nullptr);
  EXPECT_EQ(ctx->type, 3U);
  EXPECT_EQ(ctx->name, "a");
  EXPECT_EQ(ctx->value, 1U);
}

TEST_F(tying, a_present_track_keeps_its_delays_and_waits_for_them) {
  field::interface_added("Gi1");
  ASSERT_EQ(commit({set_number(track_path("a", "delay_up"), 10)}), 0);
  ASSERT_EQ(tie("Gi1", "a"), 0);
  EXPECT_EQ(track("a").type, track_type::interface);
  EXPECT_EQ(track("a").source_state, track_state::up);
  EXPECT_EQ(track("a").state, track_state::unknown);
  field::advance(std::chrono::seconds{10});
  EXPECT_EQ(track("a").state, track_state::up);
  EXPECT_EQ(published("a"), 1U);
}

TEST_F(tying, after_a_restart_the_published_state_is_taken_over) {
  field::interface_added("Gi1");
  ledger_control_put("/oper/gl/object-tracking/a", ledger_kind::u32, bytes_of_numbers({1}));
  ot_set_restart(2);
  ASSERT_EQ(tie("Gi1", "a"), 0);
  EXPECT_EQ(track("a").state, track_state::up);
  EXPECT_EQ(track("a").state_change_counter, 0U);  // nothing to publish
  EXPECT_THAT(field::take_messages(), IsEmpty());
  ASSERT_EQ(tie("Gi1", "b"), 0);  // never published: from unknown
  EXPECT_THAT(field::take_messages(),
              ElementsAre("OT-SERVICES-6-TRACK_INFO: track b state Track_Up"));
}

TEST_F(tying, an_entry_that_is_there_takes_the_track_at_its_head) {
  const std::uint32_t handle = field::interface_added("Gi1");
  field::run_pending();
  ASSERT_NE(entry("Gi1"), nullptr);
  for (const char* name : {"a", "b", "c"}) {
    ASSERT_EQ(tie("Gi1", name), 0);
  }
  EXPECT_THAT(tracks_of("Gi1"), ElementsAre("c", "b", "a"));
  EXPECT_EQ(entry("Gi1")->ifhandle, handle);
  EXPECT_EQ(entry("Gi1")->effective_state, ifm_state_up);
}

TEST_F(tying, an_entry_without_handle_asks_the_interface_manager_and_stays_as_it_is) {
  ASSERT_EQ(tie("Gi1", "a"), 0);
  field::interface_added("Gi1");  // its notification is still on the way
  ASSERT_EQ(tie("Gi1", "b"), 0);
  EXPECT_EQ(track("b").state, track_state::up);
  EXPECT_EQ(entry("Gi1")->ifhandle, 0U);
  EXPECT_EQ(entry("Gi1")->effective_state, 17U);
}

TEST_F(tying, a_failing_state_query_ends_it_before_anything_is_made) {
  const std::uint32_t handle = field::interface_added("Gi1");
  field::fail_next("ifc_state_query", 5);
  trace();
  EXPECT_EQ(tie("Gi1", "a"), 5);
  EXPECT_THAT(
      field::take_traces(),
      Contains("(object_tracking_type_interface_create) : ot_ifc_state_query for ifhandle " +
               std::to_string(handle) + "failed - Input/output error"));
  EXPECT_EQ(hash_db_get_track_item("a"), nullptr);
  EXPECT_EQ(entry("Gi1"), nullptr);
}

TEST_F(tying, says_what_it_makes) {
  field::interface_added("Gi1", true);
  field::interface_added("Gi2", false);
  for (const auto& [interface, report] : {std::pair{"Gi1", "REPORTED: IFM_STATE_UP"},
                                          {"Gi2", "REPORTED: IFM_STATE_DOWN"},
                                          {"Gi3", "REPORTED: IFM_STATE_UNKNOWN"}}) {
    trace();
    ASSERT_EQ(tie(interface, interface), 0);
    EXPECT_THAT(field::take_traces(),
                contains_in_order(text_lines{
                    "Entering (object_tracking_type_interface_create) : ",
                    std::string{"(object_tracking_type_interface_create) : Create new entry for "
                                "track: "} +
                        interface + " ",
                    report, "Entering (insert_track_to_interface_entry) : "}));
  }
}

TEST_F(tying, the_publications_failure_is_returned) {
  ledger_control_fail_next(ledger_operation::set, ledger_full);
  EXPECT_EQ(tie("Gi9", "a"), ledger_full);
  EXPECT_THAT(tracks_of("Gi9"), ElementsAre("a"));
  field::interface_added("Gi1");
  ledger_control_fail_next(ledger_operation::set, ledger_full);
  EXPECT_EQ(tie("Gi1", "b"), ledger_full);
  EXPECT_EQ(track("b").source_state, track_state::up);
}

class untying : public interface_track_test {};

TEST_F(untying, a_missing_track_is_0_and_traced) {
  trace();
  EXPECT_EQ(untie("Gi1", "a"), 0);
  EXPECT_THAT(
      field::take_traces(),
      Contains("(delete_track_from_interface_entry) :track a not found - nothing to delete"));
  EXPECT_EQ(delete_track_from_interface_entry_by_track_name("a"), 0);
}

TEST_F(untying, an_up_track_becomes_unknown_first) {
  field::interface_added("Gi1");
  ASSERT_EQ(tie("Gi1", "a"), 0);
  field::take_messages();
  EXPECT_EQ(untie("Gi1", "a"), 0);
  EXPECT_EQ(track("a").source_state, track_state::unknown);
  EXPECT_EQ(track("a").state, track_state::unknown);
  EXPECT_EQ(published("a"), 2U);
  EXPECT_EQ(track("a").type, track_type::none);
  EXPECT_TRUE(track("a").object.interface.name.empty());
}

TEST_F(untying, a_down_track_stays_down) {
  field::interface_added("Gi1", false);
  ASSERT_EQ(tie("Gi1", "a"), 0);
  EXPECT_EQ(untie("Gi1", "a"), 0);
  EXPECT_EQ(track("a").state, track_state::down);
  EXPECT_EQ(track("a").state_change_counter, 1U);
}

TEST_F(untying, that_cannot_publish_changes_nothing_else) {
  field::interface_added("Gi1");
  ASSERT_EQ(tie("Gi1", "a"), 0);
  ledger_control_fail_next(ledger_operation::set, ledger_full);
  EXPECT_EQ(untie("Gi1", "a"), ledger_full);
  EXPECT_EQ(track("a").source_state, track_state::unknown);
  EXPECT_EQ(track("a").type, track_type::interface);
  EXPECT_EQ(track("a").object.interface.name, "Gi1");
  EXPECT_THAT(tracks_of("Gi1"), ElementsAre("a"));
}

TEST_F(untying, the_last_track_takes_an_unknown_interfaces_entry_along) {
  ASSERT_EQ(tie("Gi9", "a"), 0);
  ASSERT_EQ(tie("Gi9", "b"), 0);
  EXPECT_EQ(untie("Gi9", "a"), 0);
  EXPECT_THAT(tracks_of("Gi9"), ElementsAre("b"));
  trace();
  EXPECT_EQ(delete_track_from_interface_entry_by_track_name("b"), 0);
  EXPECT_EQ(entry("Gi9"), nullptr);
  EXPECT_THAT(field::take_traces(),
              contains_in_order(text_lines{
                  "(delete_track_from_interface_entry) :interface Gi9 found in hash find track b "
                  "and delete it",
                  "(delete_track_from_interface_entry) :no more tracks for interface Gi9 - delete "
                  "interface from hash and cleanup"}));
}

TEST_F(untying, a_known_interfaces_entry_is_kept_and_goes_on_following) {
  field::interface_added("Gi1");
  field::run_pending();
  ASSERT_EQ(tie("Gi1", "a"), 0);
  trace();
  EXPECT_EQ(untie("Gi1", "a"), 0);
  EXPECT_THAT(field::take_traces(),
              Contains("(delete_track_from_interface_entry) :no more tracks for interface Gi1 - "
                       "keeping in hash for registration"));
  ASSERT_NE(entry("Gi1"), nullptr);
  field::link_down("Gi1");
  field::run_pending();
  EXPECT_EQ(entry("Gi1")->effective_state, ifm_state_down);
}

TEST_F(untying, from_an_interface_that_is_not_followed_only_forgets_the_type) {
  ASSERT_EQ(tie("Gi9", "a"), 0);
  ASSERT_EQ(tie("Gi8", "b"), 0);
  EXPECT_EQ(untie("Gi8", "a"), 0);
  EXPECT_EQ(untie("Gi7", "b"), 0);
  EXPECT_THAT(tracks_of("Gi8"), ElementsAre("b"));
  EXPECT_THAT(tracks_of("Gi9"), ElementsAre("a"));
  EXPECT_EQ(track("a").type, track_type::none);
  EXPECT_EQ(track("b").type, track_type::none);
}

TEST_F(tying, a_node_that_finds_no_memory_is_traced) {
  trace();
  {
    alloc_faults faults{0};
    EXPECT_EQ(tie("Gi9", "a"), no_memory);
  }
  EXPECT_THAT(field::take_traces(),
              Contains("(object_tracking_type_interface_create) : malloc failed "));
  EXPECT_EQ(hash_db_get_track_item("a"), nullptr);
}

TEST_F(tying, an_entry_that_finds_no_memory_is_traced) {
  ASSERT_EQ(commit({set_number(track_path("a", "delay_up"), 10)}), 0);
  trace();
  {
    alloc_faults faults{1};  // after the node
    EXPECT_EQ(tie("Gi9", "a"), no_memory);
  }
  EXPECT_THAT(field::take_traces(),
              contains_in_order(text_lines{
                  "(insert_track_to_interface_entry) : hash_db_add_new_item failed - no memory to "
                  "add item - Cannot allocate memory",
                  "(object_tracking_type_interface_create) : insert_track_to_interface_entry "
                  "failed - Cannot allocate memory"}));
}

TEST_F(untying, look_ups_and_the_untying_by_name_trace_their_entry) {
  ASSERT_EQ(tie("Gi9", "a"), 0);
  trace();
  EXPECT_EQ(delete_track_from_interface_entry_by_track_name("a"), 0);
  EXPECT_THAT(
      field::take_traces(),
      contains_in_order(text_lines{"Entering (delete_track_from_interface_entry_by_track_name) : ",
                                   "Entering (delete_track_from_interface_entry) : ",
                                   "Entering (hash_db_get_interface_item) : "}));
}

}  // namespace
}  // namespace ot::test
