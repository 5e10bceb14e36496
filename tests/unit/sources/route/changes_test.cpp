// Reachability and VRFs that change under the tracks of a route.
#include "sources/route/track.h"

#include "platform/ledger_status.h"
#include "platform/memory/ledger_controls.h"
#include "tests/unit/sources/route/fixture.h"

namespace ot::test {
namespace {

using testing::Contains;
using testing::Not;

class route_changes : public route_service {
 protected:
  static void change(track_state state, const char* vrf = "default") {
    object_tracking_change_route_state(ip(net), ipv4_prefixlen2mask(16), vrf, state);
  }
  std::uint32_t publications(const char* name) { return track(name).state_change_counter; }
};

TEST_F(route_changes, reach_every_track_that_has_another_state) {
  ASSERT_EQ(create("a"), 0);
  ASSERT_EQ(create("b"), 0);
  trace();
  change(track_state::up);
  EXPECT_EQ(published("a"), 1U);
  EXPECT_EQ(published("b"), 1U);
  EXPECT_THAT(field::take_traces(),
              Contains("(object_tracking_change_route_state) : ip 10.1.0.0/255.255.0.0 vrf default "
                       "state Track_Up"));
  const std::uint32_t before = publications("a");
  change(track_state::up);
  EXPECT_EQ(publications("a"), before);
}

TEST_F(route_changes, anything_but_up_is_down) {
  field::route_added(net, 16, "eth0");
  ASSERT_EQ(create("t"), 0);
  change(track_state::unknown);
  EXPECT_EQ(published("t"), 2U);
  EXPECT_EQ(entry()->reach_state, 0U);
}

TEST_F(route_changes, of_a_route_that_nobody_follows_are_reported) {
  trace();
  change(track_state::up, "red");
  EXPECT_THAT(field::take_traces(), Contains("(object_tracking_change_route_state) : route "
                                             "10.1.0.0/255.255.0.0 vrf red not found"));
}

TEST_F(route_changes, a_failing_publication_ends_the_walk) {
  ASSERT_EQ(create("a"), 0);
  ASSERT_EQ(create("b"), 0);  // the first in the list
  ledger_control_fail_next(ledger_operation::set, ledger_full);
  change(track_state::up);
  EXPECT_EQ(published("a"), 2U);
  EXPECT_EQ(published("b"), 2U);
}

TEST_F(route_changes, a_vrf_that_appears_makes_its_tracks_follow_the_route) {
  field::route_added(net, 16, "eth0", blue_table);
  ASSERT_EQ(create("t", "blue"), 0);
  ASSERT_EQ(published("t"), 2U);
  trace();
  add_blue();
  EXPECT_EQ(published("t"), 1U);
  EXPECT_EQ(entry("blue")->vrf_id, blue_id);
  EXPECT_EQ(field::fib_registrations(), 1U);
  EXPECT_THAT(field::take_traces(),
              contains_in_order(text_lines{
                  "(ot_vmap_vrf_callback)",
                  "(ot_vmap_vrf_callback): VMAP VRF Update event for VRF blue 60000007",
                  "(ot_update_track_vrf_id): vrf name blue, vrf id 60000007",
                  "(ot_fec_lookup): ip 10.1.0.0 vrf id 60000007",
                  "(ot_fec_register) : ip 10.1.0.0/255.255.0.0 vrf id 60000007",
              }));
  field::route_removed(net, 16, blue_table);
  field::run_pending();
  EXPECT_EQ(published("t"), 2U);
}

TEST_F(route_changes, a_vrf_that_goes_takes_its_tracks_down_until_it_is_back) {
  field::route_added(net, 16, "eth0", blue_table);
  field::route_added(net, 16, "eth0", 200);
  add_blue();
  ASSERT_EQ(create("t", "blue"), 0);
  ASSERT_EQ(published("t"), 1U);
  trace();
  field::vrf_removed("blue");
  field::run_pending();
  EXPECT_EQ(published("t"), 2U);
  EXPECT_EQ(entry("blue")->vrf_id, 0U);
  EXPECT_EQ(entry("blue")->reach_state, 2U);
  EXPECT_EQ(field::fib_registrations(), 1U);  // stays
  EXPECT_THAT(field::take_traces(),
              Contains("(ot_vmap_vrf_callback): VMAP VRF Delete event for VRF blue 60000007"));
  field::vrf_added("blue", 0x60000009, 200);
  field::run_pending();
  EXPECT_EQ(published("t"), 1U);
  EXPECT_EQ(entry("blue")->vrf_id, 0x60000009U);
}

TEST_F(route_changes, a_new_id_hands_an_unchanged_state_to_the_publication_too) {
  const std::string handed_over =
      "(object_tracking_set_track_state_in_ledger) : track t state Track_Up";
  field::route_added(net, 16, "eth0", blue_table);
  add_blue();
  ASSERT_EQ(create("t", "blue"), 0);
  trace();
  ot_update_track_vrf_id("blue", blue_id);  // known already
  EXPECT_THAT(field::take_traces(), Not(Contains(handed_over)));
  field::vrf_added("blue", 0x60000009, blue_table);
  field::run_pending();
  EXPECT_THAT(field::take_traces(), Contains(handed_over));
}

TEST_F(route_changes, an_id_of_0_is_only_remembered) {
  field::route_added(net, 16, "eth0", blue_table);
  field::route_added(net, 16, "eth0");  // what would be found without the VRF
  add_blue();
  ASSERT_EQ(create("t", "blue"), 0);
  const std::uint32_t before = publications("t");
  trace();
  ot_update_track_vrf_id("blue", 0);
  EXPECT_THAT(field::take_traces(),
              testing::ElementsAre("(ot_update_track_vrf_id): vrf name blue, vrf id 0"));
  EXPECT_EQ(entry("blue")->vrf_id, 0U);
  EXPECT_EQ(entry("blue")->reach_state, 1U);
  EXPECT_EQ(publications("t"), before);
  EXPECT_EQ(field::fib_registrations(), 1U);
}

TEST_F(route_changes, a_new_id_without_a_route_only_registers) {
  ASSERT_EQ(create("t", "blue"), 0);
  const std::uint32_t before = publications("t");
  add_blue();
  EXPECT_EQ(publications("t"), before);
  EXPECT_EQ(field::fib_registrations(), 1U);
}

TEST_F(route_changes, a_failing_look_up_ends_the_walk_over_the_routes) {
  ASSERT_EQ(create("a", "blue"), 0);
  ASSERT_EQ(create("b", "blue", "10.2.0.0"), 0);
  field::fail_next("rtclient_lookup", 5);
  trace();
  ot_update_track_vrf_id("blue", blue_id);
  EXPECT_EQ(field::fib_registrations(), 0U);
  const bool first_is_a = entry("blue")->vrf_id != 0;
  EXPECT_NE(entry("blue", "10.2.0.0")->vrf_id != 0, first_is_a);
  EXPECT_THAT(
      field::take_traces(),
      Contains(std::string{"(ot_update_track_vrf_id) : ot_fec_lookup for ip "} +
               (first_is_a ? "10.1.0.0" : "10.2.0.0") + " vrf blue failed - Input/output error"));
}

TEST_F(route_changes, a_failing_registration_lets_the_walk_go_on) {
  ASSERT_EQ(create("a", "blue"), 0);
  ASSERT_EQ(create("b", "blue", "10.2.0.0"), 0);
  field::fail_next("rtclient_bulk_reg_notif", 5);
  trace();
  ot_update_track_vrf_id("blue", blue_id);
  EXPECT_THAT(
      field::take_traces(),
      Contains(testing::MatchesRegex("\\(ot_update_track_vrf_id\\) : ot_fec_register fail for ip "
                                     "10\\.[12]\\.0\\.0/255\\.255\\.0\\.0 vrf blue failed - "
                                     "Input/output error")));
  EXPECT_EQ(entry("blue")->vrf_id, blue_id);
  EXPECT_EQ(entry("blue", "10.2.0.0")->vrf_id, blue_id);
  EXPECT_EQ(field::fib_registrations(), 1U);
}

TEST_F(route_changes, a_failing_publication_under_a_new_id_is_reported) {
  field::route_added(net, 16, "eth0", blue_table);
  ASSERT_EQ(create("t", "blue"), 0);
  ledger_control_fail_next(ledger_operation::set, ledger_full);
  trace();
  add_blue();
  EXPECT_THAT(field::take_traces(),
              Contains("(ot_update_track_vrf_id) : object_tracking_set_track_state_in_ledger fail "
                       "for track t  - The ledger is full"));
  EXPECT_EQ(field::fib_registrations(), 0U);
  EXPECT_EQ(track("t").source_state, track_state::up);
}

TEST_F(route_changes, a_failing_publication_keeps_the_source_state) {
  ASSERT_EQ(create("a"), 0);
  ASSERT_EQ(create("b"), 0);  // the first in the list
  ledger_control_fail_next(ledger_operation::set, ledger_full);
  change(track_state::up);
  EXPECT_EQ(track("b").source_state, track_state::up);
  EXPECT_EQ(track("a").source_state, track_state::down);
}

TEST_F(route_changes, a_failing_publication_of_a_vrfs_end_ends_the_walk) {
  field::route_added(net, 16, "eth0", blue_table);
  field::route_added("10.2.0.0", 16, "eth0", blue_table);
  add_blue();
  ASSERT_EQ(create("a", "blue"), 0);
  ASSERT_EQ(create("b", "blue", "10.2.0.0"), 0);
  ledger_control_fail_next(ledger_operation::set, ledger_full);
  trace();
  ot_delete_track_vrf_id("blue", blue_id);
  const bool first_is_a = entry("blue")->vrf_id == 0;
  const char* first = first_is_a ? "a" : "b";
  const char* second = first_is_a ? "b" : "a";
  EXPECT_THAT(field::take_traces(),
              Contains("(ot_delete_track_vrf_id) : object_tracking_set_track_state_in_ledger fail "
                       "for track " +
                       std::string{first} + "  - The ledger is full"));
  EXPECT_EQ(track(first).source_state, track_state::down);
  EXPECT_EQ(track(second).source_state, track_state::up);
  EXPECT_EQ(published(second), 1U);
}

TEST_F(route_changes, only_the_vrf_of_that_name_and_id_is_deleted) {
  field::route_added(net, 16, "eth0", blue_table);
  add_blue();
  ASSERT_EQ(create("t", "blue"), 0);
  ot_delete_track_vrf_id("blue", blue_id + 1);
  ot_delete_track_vrf_id("red", blue_id);
  EXPECT_EQ(published("t"), 1U);
  ot_delete_track_vrf_id("blue", blue_id);
  EXPECT_EQ(published("t"), 2U);
}

}  // namespace
}  // namespace ot::test
