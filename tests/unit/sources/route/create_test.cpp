// The two paths to a tied route track, and the way back.
#include "tests/unit/sources/route/fixture.h"

#include "config/delays.h"
#include "config/lifecycle.h"
#include "platform/ledger_status.h"
#include "platform/memory/ledger_controls.h"

namespace ot::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

const std::string look_up_line = "(ot_fec_lookup): ip 10.1.0.0 vrf id 60000000";
const std::string register_line = "(ot_fec_register) : ip 10.1.0.0/255.255.0.0 vrf id 60000000";

class route_create : public route_service {
 protected:
  // Both paths: a track that is new, and one that exists.
  static void make_present(const char* name) {
    ASSERT_EQ(object_tracking_set_create_track_delay(name, 0, 0, true), 0);
  }
};

TEST_F(route_create, a_new_track_registers_before_it_looks_up) {
  field::route_added(net, 16, "eth0");
  trace();
  ASSERT_EQ(create("t"), 0);
  EXPECT_THAT(field::take_traces(), contains_in_order(text_lines{register_line, look_up_line}));
  EXPECT_EQ(track("t").type, track_type::route);
  EXPECT_EQ(track("t").state, track_state::up);
  EXPECT_EQ(published("t"), 1U);
  ASSERT_NE(entry(), nullptr);
  EXPECT_EQ(entry()->vrf_id, vmap_c_vrf_id_dflt());
  EXPECT_EQ(entry()->reach_state, 1U);
  EXPECT_EQ(field::vrf_registrations(), 0U);
}

TEST_F(route_create, a_present_track_looks_up_before_it_registers) {
  field::route_added(net, 16, "eth0");
  make_present("t");
  trace();
  ASSERT_EQ(create("t"), 0);
  EXPECT_THAT(field::take_traces(), contains_in_order(text_lines{look_up_line, register_line}));
  EXPECT_EQ(track("t").type, track_type::route);
  EXPECT_EQ(published("t"), 1U);
  EXPECT_EQ(track("t").object.route.vrf, "default");
  EXPECT_EQ(field::vrf_registrations(), 0U);
}

TEST_F(route_create, a_failing_look_up_leaves_only_the_new_tracks_registration) {
  make_present("present");
  trace();
  const std::string line =
      "(object_tracking_type_route_create) : ot_fec_lookup for ip 10.1.0.0 vrf default failed - "
      "Input/output error";
  field::fail_next("rtclient_lookup", 5);
  EXPECT_EQ(create("present"), 5);
  EXPECT_EQ(field::fib_registrations(), 0U);
  EXPECT_THAT(field::take_traces(), Contains(line));
  field::fail_next("rtclient_lookup", 5);
  EXPECT_EQ(create("new"), 5);
  EXPECT_EQ(field::fib_registrations(), 1U);
  EXPECT_THAT(field::take_traces(), Contains(line));
  EXPECT_EQ(hash_db_get_track_item("new"), nullptr);
  EXPECT_EQ(entry(), nullptr);
}

TEST_F(route_create, a_failing_registration_ends_either_path) {
  make_present("present");
  for (const char* name : {"present", "new"}) {
    field::fail_next("rtclient_bulk_reg_notif", 5);
    EXPECT_EQ(create(name), 5) << name;
    EXPECT_EQ(entry(), nullptr) << name;
  }
}

TEST_F(route_create, address_0_cannot_be_registered) {
  EXPECT_EQ(create("t", nullptr, "0.0.0.0"), invalid_argument);
  EXPECT_EQ(hash_db_get_track_item("t"), nullptr);
}

TEST_F(route_create, only_a_route_of_exactly_that_length_is_up) {
  field::route_added("0.0.0.0", 0, "eth0");
  ASSERT_EQ(create("t"), 0);
  EXPECT_EQ(published("t"), 2U);
  field::route_added("10.0.0.0", 8, "eth0");
  field::run_pending();
  EXPECT_EQ(published("t"), 2U);
  field::route_added(net, 16, "eth0");
  field::run_pending();
  EXPECT_EQ(published("t"), 1U);
  field::route_added(net, 24, "eth1");  // now the longest match
  field::run_pending();
  EXPECT_EQ(published("t"), 2U);
}

TEST_F(route_create, a_new_track_with_a_vrf_alone_is_down_without_a_route) {
  add_blue();
  ASSERT_EQ(create_vrf_only("t", "blue"), 0);
  EXPECT_EQ(published("t"), 2U);
  EXPECT_EQ(hash_db_count(ipv4_route_table), 0U);
  field::route_added(net, 16, "eth0", blue_table);
  ASSERT_EQ(create("t"), 0);
  EXPECT_EQ(published("t"), 1U);
  ASSERT_NE(entry("blue"), nullptr);
  EXPECT_EQ(entry("blue")->vrf_id, blue_id);
  EXPECT_EQ(field::vrf_registrations(), 1U);
}

TEST_F(route_create, a_present_track_remembers_a_vrf_alone) {
  make_present("t");
  ASSERT_EQ(create_vrf_only("t", "blue"), 0);
  EXPECT_EQ(track("t").type, track_type::route);
  EXPECT_EQ(track("t").object.route.vrf, "blue");
  EXPECT_EQ(field::vrf_registrations(), 0U);
}

TEST_F(route_create, in_a_vrf_that_is_not_known_is_down_and_not_registered) {
  make_present("present");
  for (const char* name : {"present", "new"}) {
    trace();
    ASSERT_EQ(create(name, "blue"), 0);
    EXPECT_EQ(published(name), 2U) << name;
    EXPECT_THAT(field::take_traces(), Not(Contains(HasSubstr("(ot_fec_"))));
  }
  EXPECT_EQ(field::fib_registrations(), 0U);
  EXPECT_EQ(field::vrf_registrations(), 2U);  // one for each track
  EXPECT_EQ(entry("blue")->vrf_id, 0U);
}

TEST_F(route_create, a_new_track_traces_that_its_vrf_is_not_known_yet) {
  trace();
  ASSERT_EQ(create("t", "blue"), 0);
  EXPECT_THAT(field::take_traces(),
              contains_in_order(
                  text_lines{"(ot_vmap_vrf_name_2_vrf_id): vrf: blue (0)",
                             "(object_tracking_type_route_create) : vrf blue is not known yet",
                             "ot_vmap_vrf_add(): VRF blue"}));
}

TEST_F(route_create, the_operations_of_a_route_trace_their_entry) {
  field::route_added(net, 16, "eth0");
  trace();
  ASSERT_EQ(create("t"), 0);
  EXPECT_THAT(field::take_traces(),
              contains_in_order(text_lines{"Entering (object_tracking_type_route_create) : ",
                                           "Entering (insert_track_to_route_entry) : ",
                                           "Entering (hash_db_get_route_item) : ",
                                           "Entering (hash_db_add_new_route_item) : "}));
  ASSERT_EQ(object_tracking_type_route_delete("t"), 0);
  EXPECT_THAT(field::take_traces(),
              contains_in_order(text_lines{"Entering (object_tracking_type_route_delete) : ",
                                           "Entering (delete_track_from_route_entry) : ",
                                           "Entering (hash_db_get_route_item) : ",
                                           "Entering (hash_db_delete_route_item) : "}));
}

TEST_F(route_create, a_track_that_cannot_be_untied_is_not_deleted) {
  ASSERT_EQ(create("t"), 0);
  fib_down();
  trace();
  EXPECT_EQ(object_tracking_track_delete("t"), invalid_argument);
  EXPECT_THAT(field::take_traces(),
              Contains("(object_tracking_track_delete) : delete_track_from_route_entry failed - "
                       "Invalid argument"));
  EXPECT_NE(hash_db_get_track_item("t"), nullptr);
  EXPECT_NE(entry(), nullptr);
}

TEST_F(route_create, a_refused_vrf_registration_is_returned) {
  make_present("present");
  for (const char* name : {"present", "new"}) {
    field::fail_next("vmap_c_notif_reg", 5);
    EXPECT_EQ(create(name, "blue"), 5) << name;
  }
  EXPECT_EQ(hash_db_get_track_item("new"), nullptr);
}

TEST_F(route_create, the_same_vrf_again_does_nothing_and_another_moves_the_track) {
  field::route_added(net, 16, "eth0", blue_table);
  add_blue();
  ASSERT_EQ(create("t"), 0);
  const std::uint32_t publications = track("t").state_change_counter;
  ASSERT_EQ(create_vrf_only("t", "default"), 0);
  EXPECT_EQ(track("t").state_change_counter, publications);
  EXPECT_EQ(published("t"), 2U);
  ASSERT_EQ(create_vrf_only("t", "blue"), 0);
  EXPECT_EQ(entry(), nullptr);
  EXPECT_THAT(followers(entry("blue")), ElementsAre("t"));
  EXPECT_EQ(published("t"), 1U);
  EXPECT_EQ(field::fib_registrations(), 1U);
}

TEST_F(route_create, the_same_vrf_again_leaves_an_up_track_tied) {
  field::route_added(net, 16, "eth0", blue_table);
  add_blue();
  ASSERT_EQ(create("t", "blue"), 0);
  ASSERT_EQ(published("t"), 1U);
  const std::uint32_t publications = track("t").state_change_counter;
  field::take_messages();
  ASSERT_EQ(create_vrf_only("t", "blue"), 0);
  EXPECT_EQ(track("t").state_change_counter, publications);
  EXPECT_TRUE(field::take_messages().empty());
}

TEST_F(route_create, tracks_of_one_route_share_its_entry_newest_first) {
  ASSERT_EQ(create("a"), 0);
  ASSERT_EQ(create("b"), 0);
  ASSERT_EQ(create("other", "red"), 0);
  EXPECT_THAT(followers(entry()), ElementsAre("b", "a"));
  EXPECT_EQ(hash_db_count(ipv4_route_table), 2U);
  EXPECT_EQ(field::fib_registrations(), 1U);
}

TEST_F(route_create, the_last_track_takes_the_registrations_along) {
  add_blue();
  for (const char* name : {"a", "b"}) {
    ASSERT_EQ(create(name, "blue"), 0);
  }
  EXPECT_EQ(field::vrf_registrations(), 2U);
  ASSERT_EQ(delete_track_from_route_entry("b"), 0);
  EXPECT_EQ(field::vrf_registrations(), 1U);
  EXPECT_EQ(field::fib_registrations(), 1U);
  ASSERT_EQ(delete_track_from_route_entry("a"), 0);
  EXPECT_EQ(field::vrf_registrations(), 0U);
  EXPECT_EQ(field::fib_registrations(), 0U);
  EXPECT_EQ(entry("blue"), nullptr);
}

TEST_F(route_create, untying_without_a_connection_fails_and_keeps_the_entry) {
  ASSERT_EQ(create("t"), 0);
  fib_down();
  EXPECT_EQ(delete_track_from_route_entry("t"), invalid_argument);
  EXPECT_NE(entry(), nullptr);
}

TEST_F(route_create, a_route_that_cannot_be_unregistered_keeps_its_vrf_notifications) {
  add_blue();
  ASSERT_EQ(create("t", "blue"), 0);
  ASSERT_EQ(field::vrf_registrations(), 1U);
  field::fail_next("rtclient_bulk_unreg_notif", 5);
  trace();
  EXPECT_EQ(delete_track_from_route_entry("t"), 5);
  EXPECT_EQ(field::vrf_registrations(), 1U);
  EXPECT_NE(entry("blue"), nullptr);
  EXPECT_THAT(field::take_traces(),
              Contains("(delete_track_from_route_entry) : ot_fec_unregister for ip "
                       "10.1.0.0/255.255.0.0 vrf blue failed - Input/output error"));
}

TEST_F(route_create, an_up_track_becomes_unknown_before_it_is_untied) {
  field::route_added(net, 16, "eth0");
  ASSERT_EQ(create("t"), 0);
  ledger_control_fail_next(ledger_operation::set, ledger_full);
  EXPECT_EQ(delete_track_from_route_entry("t"), ledger_full);
  EXPECT_EQ(track("t").source_state, track_state::unknown);
  EXPECT_THAT(followers(entry()), ElementsAre("t"));
  EXPECT_EQ(delete_track_from_route_entry("t"), 0);
  EXPECT_EQ(entry(), nullptr);
}

TEST_F(route_create, untying_what_is_not_tied_does_nothing) {
  EXPECT_EQ(delete_track_from_route_entry("nobody"), 0);
  ASSERT_EQ(create_vrf_only("t", "red"), 0);
  ASSERT_EQ(delete_track_from_route_entry("t"), 0);
  EXPECT_EQ(track("t").object.route.vrf, "default");
  EXPECT_EQ(field::vrf_registrations(), 0U);
}

}  // namespace
}  // namespace ot::test
