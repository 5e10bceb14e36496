// What the FIB reports: changes of routes, and its connection going and coming.
#include "sources/route/fib.h"

#include "sources/route/track.h"
#include "tests/unit/sources/route/fixture.h"

namespace ot::test {
namespace {

using testing::Contains;
using testing::ElementsAre;

class fib_events : public route_service {
 protected:
  static rtclient_notification change_of(std::uint32_t length) {
    return {fib_family_ipv4, field::main_table, ip(net), length};
  }
  std::uint32_t publications(const char* name) { return track(name).state_change_counter; }
};

TEST_F(fib_events, a_route_that_comes_and_goes_moves_its_tracks) {
  ASSERT_EQ(create("a"), 0);
  ASSERT_EQ(create("b"), 0);
  field::route_added(net, 16, "eth0");
  field::run_pending();
  EXPECT_EQ(published("a"), 1U);
  EXPECT_EQ(published("b"), 1U);
  EXPECT_EQ(entry()->reach_state, 1U);
  field::route_removed(net, 16);
  field::run_pending();
  EXPECT_EQ(published("a"), 2U);
  EXPECT_EQ(entry()->reach_state, 2U);
}

TEST_F(fib_events, a_change_is_traced) {
  ASSERT_EQ(create("a"), 0);
  field::run_pending();
  trace();
  field::route_added(net, 16, "eth0");
  field::run_pending();
  EXPECT_THAT(field::take_traces(),
              contains_in_order(text_lines{
                  "(ot_fec_notif_handler) ",
                  "(ot_fec_notif_handler) got notification for 10.1.0.0 vrf id 60000000",
                  "(ot_fec_lookup): ip 10.1.0.0 vrf id 60000000",
              }));
}

TEST_F(fib_events, an_unchanged_reachability_publishes_nothing) {
  ASSERT_EQ(create("t"), 0);
  const std::uint32_t before = publications("t");
  const rtclient_notification change = change_of(16);
  ot_fec_notif_handler(&change);
  field::route_added("10.0.0.0", 8, "eth0");
  field::run_pending();
  EXPECT_EQ(publications("t"), before);
}

TEST_F(fib_events, a_change_under_another_mask_changes_nothing) {
  ASSERT_EQ(create("t"), 0);
  field::run_pending();
  field::route_added(net, 16, "eth0");  // its own notification still waits
  const std::uint32_t before = publications("t");
  trace();
  const rtclient_notification change = change_of(24);
  ot_fec_notif_handler(&change);
  EXPECT_EQ(publications("t"), before);
  EXPECT_EQ(entry()->reach_state, 2U);
  EXPECT_THAT(field::take_traces(),
              Contains("(ot_fec_notif_handler) : route 10.1.0.0/24 vrf default not found"));
}

TEST_F(fib_events, another_family_and_a_failing_look_up_change_nothing) {
  ASSERT_EQ(create("t"), 0);
  field::run_pending();
  field::route_added(net, 16, "eth0");
  trace();
  rtclient_notification change = change_of(16);
  change.family = 26;
  ot_fec_notif_handler(&change);
  EXPECT_THAT(field::take_traces(), ElementsAre("(ot_fec_notif_handler) "));
  change.family = fib_family_ipv4;
  field::fail_next("rtclient_lookup", 5);
  ot_fec_notif_handler(&change);
  EXPECT_EQ(published("t"), 2U);
  ot_fec_notif_handler(&change);
  EXPECT_EQ(published("t"), 1U);
}

TEST_F(fib_events, an_answer_without_a_result_changes_nothing) {
  field::route_added(net, 16, "eth0");
  ASSERT_EQ(create("t"), 0);
  field::run_pending();
  const std::uint32_t before = publications("t");
  const rtclient_notification change = change_of(16);
  field::fail_next("rtclient_lookup", 0);
  ot_fec_notif_handler(&change);
  EXPECT_EQ(publications("t"), before);
  EXPECT_EQ(entry()->reach_state, 1U);
  EXPECT_EQ(published("t"), 1U);
}

TEST_F(fib_events, a_change_in_a_vrfs_table_concerns_that_vrf_only) {
  add_blue();
  ASSERT_EQ(create("in_blue", "blue"), 0);
  ASSERT_EQ(create("in_default"), 0);
  field::route_added(net, 16, "eth0", blue_table);
  field::run_pending();
  EXPECT_EQ(published("in_blue"), 1U);
  EXPECT_EQ(published("in_default"), 2U);
}

TEST_F(fib_events, a_lost_connection_changes_no_state) {
  field::route_added(net, 16, "eth0");
  ASSERT_EQ(create("t"), 0);
  field::run_pending();
  trace();
  fib_down();
  EXPECT_THAT(field::take_traces(), ElementsAre("(ot_fec_disconnect_handler) : "));
  EXPECT_EQ(ot_fib_connection_up, 0U);
  EXPECT_EQ(published("t"), 1U);
  EXPECT_EQ(entry()->reach_state, 1U);
}

TEST_F(fib_events, what_changed_meanwhile_is_seen_after_the_reconnection) {
  field::route_added(net, 16, "eth0");
  ASSERT_EQ(create("t"), 0);
  fib_down();
  field::route_removed(net, 16);
  field::run_pending();
  EXPECT_EQ(published("t"), 1U);
  fib_up();
  EXPECT_EQ(published("t"), 2U);
}

TEST_F(fib_events, a_reconnection_registers_only_routes_of_known_vrfs) {
  add_blue();
  ASSERT_EQ(create("in_default"), 0);
  ASSERT_EQ(create("in_blue", "blue"), 0);
  ASSERT_EQ(create("in_red", "red", "10.3.0.0"), 0);  // no other track's prefix
  EXPECT_EQ(field::fib_registrations(), 2U);
  fib_down();
  EXPECT_EQ(field::fib_registrations(), 0U);
  fib_up();
  EXPECT_EQ(field::fib_registrations(), 2U);
}

TEST_F(fib_events, a_failing_registration_leaves_the_queue_for_the_next_reconnection) {
  ASSERT_EQ(create("t"), 0);
  fib_down();
  ASSERT_EQ(set_address("late", "10.2.0.0", 16), 0);
  field::fail_next("rtclient_bulk_reg_notif", 5);
  trace();
  fib_up();
  EXPECT_EQ(ot_fib_connection_up, 1U);
  EXPECT_EQ(pending_route_count(), 1U);
  EXPECT_EQ(hash_db_get_track_item("late"), nullptr);
  EXPECT_THAT(field::take_traces(),
              Contains("(ot_fec_reconnect_handler) : ot_fec_register for ip "
                       "10.1.0.0/255.255.0.0 vrf default failed - Input/output error"));
  fib_down();
  fib_up();
  EXPECT_EQ(pending_route_count(), 0U);
  EXPECT_EQ(published("late"), 2U);
  EXPECT_EQ(field::fib_registrations(), 2U);
}

}  // namespace
}  // namespace ot::test
