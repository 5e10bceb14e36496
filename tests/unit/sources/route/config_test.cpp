// The two configuration items of a route track, with the FIB connected and not.
#include "sources/route/track.h"

#include "platform/component_status.h"
#include "tests/unit/sources/route/fixture.h"

namespace ot::test {
namespace {

using testing::Contains;
using testing::ElementsAre;

class route_config : public route_service {
 protected:
  void SetUp() override {
    route_service::SetUp();
    field::route_added(net, 16, "eth0");
    ASSERT_EQ(commit({set_number(track_path("t", "type/route/0x2/a"), 1)}), 0);
  }
};

TEST_F(route_config, an_address_ties_the_track_and_remembers_its_type) {
  ASSERT_EQ(set_address("t", net, 16), 0);
  EXPECT_EQ(published("t"), 1U);
  EXPECT_EQ(track("t").configured_type, 2U);
  EXPECT_THAT(followers(entry()), ElementsAre("t"));
}

TEST_F(route_config, both_items_trace_their_entry) {
  trace();
  ASSERT_EQ(set_vrf("t", "default"), 0);
  EXPECT_THAT(field::take_traces(),
              contains_in_order(text_lines{"Entering (object_tracking_default_verify) : ",
                                           "Entering (object_tracking_type_route_vrf_apply) : "}));
  ASSERT_EQ(set_address("t", net, 16), 0);
  EXPECT_THAT(field::take_traces(),
              contains_in_order(text_lines{"Entering (object_tracking_verify_ip_mask_and_type) : ",
                                           "Entering (object_tracking_type_route_ip_apply) : "}));
}

TEST_F(route_config, an_unchanged_address_does_nothing) {
  ASSERT_EQ(set_address("t", net, 16), 0);
  const std::uint32_t publications = track("t").state_change_counter;
  ASSERT_EQ(set_address("t", net, 16), 0);
  EXPECT_EQ(track("t").state_change_counter, publications);
}

TEST_F(route_config, another_mask_moves_the_track) {
  ASSERT_EQ(set_address("t", net, 16), 0);
  forget_output();
  ASSERT_EQ(set_address("t", net, 24), 0);
  EXPECT_EQ(entry(), nullptr);
  EXPECT_THAT(followers(entry("default", net, 24)), ElementsAre("t"));
  EXPECT_THAT(field::take_messages(),
              ElementsAre("OT-SERVICES-6-TRACK_INFO: track t state Unknown",
                          "OT-SERVICES-6-TRACK_INFO: track t state Track_Down"));
}

TEST_F(route_config, removing_the_address_of_an_up_track_makes_it_unknown_without_a_type) {
  ASSERT_EQ(set_address("t", net, 16), 0);
  ASSERT_EQ(published("t"), 1U);
  forget_output();
  ASSERT_EQ(commit({remove_item(address_item("t"))}), 0);
  EXPECT_THAT(field::take_messages(),
              ElementsAre("OT-SERVICES-6-TRACK_INFO: track t state Unknown"));
  EXPECT_EQ(track("t").type, track_type::none);
  EXPECT_EQ(track("t").object.route.ip_configured, 0U);
  EXPECT_EQ(entry(), nullptr);
  EXPECT_EQ(field::fib_registrations(), 0U);
}

TEST_F(route_config, a_set_without_a_new_address_leaves_the_track_untied) {
  ASSERT_EQ(set_address("t", net, 16), 0);
  const ledger_path_field name{"t", 0};
  ledger_value old_value;
  ASSERT_EQ(ledger_value_assign(old_value, ledger_kind::tuple,
                                bytes_of_numbers({ip(net), ipv4_prefixlen2mask(16)})),
            0);
  ledger_change change;
  change.event = ledger_event_set;
  change.fields = {&name, 1};
  change.old_value = &old_value;
  EXPECT_EQ(object_tracking_type_route_ip_apply(change), 0);
  EXPECT_EQ(entry(), nullptr);
  EXPECT_EQ(track("t").type, track_type::none);
}

TEST_F(route_config, a_change_without_the_type_item_is_refused) {
  ASSERT_EQ(set_address("untyped", net, 16), 0);
  EXPECT_EQ(set_address("untyped", net, 24), track_type_conflict);
  EXPECT_THAT(followers(entry()), ElementsAre("untyped"));
}

TEST_F(route_config, a_mask_with_gaps_is_refused) {
  EXPECT_EQ(commit({set_tuple(address_item("t"), {ip(net), ip("255.0.255.0")})}),
            route_mask_not_contiguous);
  EXPECT_EQ(hash_db_get_track_item("t"), nullptr);
}

TEST_F(route_config, without_a_track_name_is_22) {
  ledger_change change;
  change.event = ledger_event_create;
  EXPECT_EQ(object_tracking_type_route_ip_apply(change), invalid_argument);
  EXPECT_EQ(object_tracking_type_route_vrf_apply(change), invalid_argument);
}

TEST_F(route_config, vrf_names_are_compared_over_eight_characters) {
  ASSERT_EQ(set_vrf("t", "customer-a"), 0);
  ASSERT_EQ(set_address("t", net, 16), 0);
  ASSERT_EQ(set_vrf("t", "customer-b"), 0);
  EXPECT_EQ(track("t").object.route.vrf, "customer-a");
  ASSERT_EQ(set_vrf("t", "custome"), 0);
  EXPECT_EQ(track("t").object.route.vrf, "custome");
  EXPECT_THAT(followers(entry("custome")), ElementsAre("t"));
}

TEST_F(route_config, removing_the_address_keeps_the_vrf_for_the_next_one) {
  ASSERT_EQ(set_vrf("t", "red"), 0);
  ASSERT_EQ(set_address("t", net, 16), 0);
  ASSERT_EQ(commit({remove_item(address_item("t"))}), 0);
  EXPECT_EQ(entry("red"), nullptr);
  ASSERT_EQ(set_address("t", "10.2.0.0", 16), 0);
  EXPECT_THAT(followers(entry("red", "10.2.0.0")), ElementsAre("t"));
}

TEST_F(route_config, removing_the_vrf_means_the_default_one) {
  ASSERT_EQ(set_vrf("t", "red"), 0);
  ASSERT_EQ(set_address("t", net, 16), 0);
  ASSERT_EQ(published("t"), 2U);
  ASSERT_EQ(commit({remove_item(vrf_item("t"))}), 0);
  EXPECT_EQ(published("t"), 1U);
  EXPECT_EQ(entry("red"), nullptr);
  EXPECT_THAT(followers(entry()), ElementsAre("t"));
}

TEST_F(route_config, waits_for_the_connection_and_is_applied_in_order) {
  fib_down();
  ASSERT_EQ(set_vrf("b", "red"), 0);
  ASSERT_EQ(set_address("b", net, 16), 0);
  ASSERT_EQ(set_address("a", net, 16), 0);
  ASSERT_EQ(set_address("c", net, 16), 0);
  EXPECT_EQ(pending_route_count(), 4U);
  EXPECT_EQ(hash_db_count(tracks_table), 0U);
  fib_up();
  EXPECT_EQ(pending_route_count(), 0U);
  EXPECT_THAT(followers(entry()), ElementsAre("c", "a"));
  EXPECT_THAT(followers(entry("red")), ElementsAre("b"));
  EXPECT_EQ(published("a"), 1U);
  EXPECT_EQ(published("b"), 2U);
}

TEST_F(route_config, a_waiting_item_that_fails_does_not_stop_the_rest) {
  fib_down();
  ASSERT_EQ(set_address("a", net, 16), 0);
  ASSERT_EQ(set_address("b", net, 16), 0);
  field::fail_next("rtclient_bulk_reg_notif", 5);
  trace();
  fib_up();
  EXPECT_THAT(field::take_traces(), Contains("(ot_fec_reconnect_handler) : "
                                             "object_tracking_type_route_create failed - "
                                             "Input/output error"));
  EXPECT_EQ(pending_route_count(), 0U);
  EXPECT_THAT(followers(entry()), ElementsAre("b"));
}

TEST_F(route_config, a_change_of_vrf_and_its_removal_never_wait) {
  ASSERT_EQ(set_vrf("t", "red"), 0);
  ASSERT_EQ(set_address("t", net, 16), 0);
  ASSERT_EQ(set_vrf("u", "red"), 0);
  ASSERT_EQ(set_address("u", "10.2.0.0", 16), 0);
  fib_down();
  EXPECT_EQ(set_vrf("t", "green"), invalid_argument);
  EXPECT_EQ(commit({remove_item(vrf_item("u"))}), invalid_argument);
  EXPECT_EQ(pending_route_count(), 0U);
}

TEST_F(route_config, a_change_of_address_never_waits) {
  ASSERT_EQ(set_address("t", net, 16), 0);
  fib_down();
  EXPECT_EQ(set_address("t", net, 24), invalid_argument);
  EXPECT_EQ(pending_route_count(), 0U);
}

}  // namespace
}  // namespace ot::test
