// Requests to the FIB: opening the client, look-ups, registrations and the translation of ids.
#include "tests/unit/sources/route/fixture.h"

namespace ot::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint32_t default_id = 0x60000000;
constexpr int refused_code = 13;
const std::string to_default_table = "(ot_tblx_vrf_id_2_table_id): TableID 0x000000FE VrfID ";

class fib_connection : public route_service {
 protected:
  static int register_net(std::uint32_t vrf_id) {
    return ot_fec_register(ip(net), ipv4_prefixlen2mask(16), vrf_id);
  }
  static int unregister_net(std::uint32_t vrf_id) {
    return ot_fec_unregister(ip(net), ipv4_prefixlen2mask(16), vrf_id);
  }
};

TEST_F(fib_connection, is_announced_by_the_reconnect_callback_also_the_first_time) {
  EXPECT_EQ(ot_fib_connection_up, 1U);
  ot_fec_close();
  EXPECT_EQ(ot_fib_connection_up, 0U);
  ASSERT_EQ(ot_fec_init(manager), 0);
  EXPECT_EQ(ot_fib_connection_up, 0U);
  field::run_pending();
  EXPECT_EQ(ot_fib_connection_up, 1U);
}

TEST_F(fib_connection, is_opened_once) {
  trace();
  EXPECT_EQ(ot_fec_init(manager), 0);
  EXPECT_EQ(ot_fec_init(nullptr), 0);
  EXPECT_THAT(field::take_traces(), ElementsAre("(ot_fec_init) : ", "(ot_fec_init) : "));
  fib_down();
  field::take_traces();
  fib_up();
  EXPECT_THAT(field::take_traces(), ElementsAre("(ot_fec_reconnect_handler) "));
}

TEST_F(fib_connection, needs_a_manager) {
  ot_fec_close();
  trace();
  EXPECT_EQ(ot_fec_init(nullptr), invalid_argument);
  EXPECT_THAT(field::take_traces(), ElementsAre("(ot_fec_init) : ", "(ot_fec_init) : NULL evm"));
}

TEST_F(fib_connection, can_be_opened_after_a_failure) {
  ot_fec_close();
  field::fail_next("rtclient_init", refused_code);
  trace();
  EXPECT_EQ(ot_fec_init(manager), refused_code);
  EXPECT_THAT(field::take_traces(),
              ElementsAre("(ot_fec_init) : ", "(ot_fec_init) : init failed: Permission denied"));
  EXPECT_EQ(ot_fec_init(manager), 0);
}

TEST_F(fib_connection, a_look_up_gives_the_longest_match) {
  field::route_added("10.0.0.0", 8, "eth0");
  field::route_added(net, 16, "eth1");
  trace();
  fib_result result;
  ASSERT_EQ(ot_fec_lookup(ip(net), default_id, result.out()), 0);
  ASSERT_NE(result.get(), nullptr);
  EXPECT_TRUE(result.get()->route_found);
  EXPECT_EQ(result.get()->prefix_length, 16U);
  EXPECT_THAT(field::take_traces(), ElementsAre("(ot_fec_lookup): ip 10.1.0.0 vrf id 60000000",
                                                to_default_table + "0x60000000"));
}

TEST_F(fib_connection, a_failing_look_up_is_reported) {
  field::fail_next("rtclient_lookup", refused_code);
  trace();
  fib_result result;
  EXPECT_EQ(ot_fec_lookup(ip(net), default_id, result.out()), refused_code);
  EXPECT_EQ(result.get(), nullptr);
  EXPECT_THAT(field::take_traces(),
              Contains("(ot_fec_lookup) : rtclient_lookup failed for 10.1.0.0 vrf id 60000000: "
                       "Permission denied"));
}

TEST_F(fib_connection, reachability_needs_a_route_of_the_masks_length) {
  const std::uint32_t mask = ipv4_prefixlen2mask(16);
  rtclient_result result;
  result.prefix_length = 16;
  EXPECT_EQ(reachability_of(nullptr, mask), track_state::down);
  EXPECT_EQ(reachability_of(&result, mask), track_state::down);
  result.route_found = true;
  EXPECT_EQ(reachability_of(&result, mask), track_state::up);
  EXPECT_EQ(reachability_of(&result, ipv4_prefixlen2mask(17)), track_state::down);
}

TEST_F(fib_connection, a_registration_and_its_end_are_reported_once) {
  trace();
  ASSERT_EQ(register_net(default_id), 0);
  EXPECT_EQ(field::fib_registrations(), 1U);
  ASSERT_EQ(unregister_net(default_id), 0);
  EXPECT_EQ(field::fib_registrations(), 0U);
  EXPECT_THAT(field::take_traces(),
              ElementsAre("(ot_fec_register) : ip 10.1.0.0/255.255.0.0 vrf id 60000000",
                          to_default_table + "0x60000000", to_default_table + "0x60000000"));
}

TEST_F(fib_connection, a_registration_carries_the_clients_name_and_the_ipv4_family) {
  field::take_introductions();
  ASSERT_EQ(register_net(default_id), 0);
  EXPECT_THAT(field::take_introductions(),
              ElementsAre("rtclient_bulk_reg_notif object_tracking 12"));
}

TEST_F(fib_connection, a_prefix_that_is_registered_already_is_no_failure) {
  ASSERT_EQ(register_net(default_id), 0);
  EXPECT_EQ(register_net(default_id), 0);
  EXPECT_EQ(field::fib_registrations(), 1U);
}

TEST_F(fib_connection, failing_registrations_are_reported) {
  for (const char* operation : {"rtclient_bulk_reg_notif", "rtclient_bulk_unreg_notif"}) {
    field::fail_next(operation, refused_code);
  }
  trace();
  EXPECT_EQ(register_net(default_id), refused_code);
  EXPECT_EQ(unregister_net(default_id), refused_code);
  EXPECT_THAT(
      field::take_traces(),
      contains_in_order(text_lines{
          "(ot_fec_register) : rtclient_bulk_reg_notif fail for 10.1.0.0/255.255.0.0 vrf id "
          "60000000: Permission denied",
          "(ot_fec_unregister) : rtclient_bulk_unreg_notif failed for ip 10.1.0.0/255.255.0.0 vrf "
          "id 60000000 - Permission denied"}));
}

TEST_F(fib_connection, refuses_at_once_what_cannot_be_registered) {
  trace();
  EXPECT_EQ(ot_fec_register(0, 0, default_id), invalid_argument);
  EXPECT_EQ(unregister_net(0), 0);
  EXPECT_THAT(field::take_traces(), IsEmpty());
  fib_down();
  field::take_traces();
  EXPECT_EQ(register_net(default_id), invalid_argument);
  EXPECT_EQ(unregister_net(default_id), invalid_argument);
  EXPECT_EQ(unregister_net(0), invalid_argument);
  EXPECT_THAT(field::take_traces(), IsEmpty());
}

TEST_F(fib_connection, translates_ids_and_falls_back_to_the_defaults) {
  add_blue();
  trace();
  EXPECT_EQ(ot_tblx_vrf_id_2_table_id(blue_id), blue_table);
  EXPECT_EQ(ot_tblx_vrf_id_2_table_id(0), field::main_table);
  EXPECT_EQ(ot_tblx_vrf_id_2_table_id(4711), field::main_table);
  EXPECT_EQ(ot_tblx_table_id_2_vrf_id(blue_table), blue_id);
  EXPECT_EQ(ot_tblx_table_id_2_vrf_id(0), default_id);
  EXPECT_EQ(ot_tblx_table_id_2_vrf_id(4711), default_id);
  const text_lines traces = field::take_traces();
  ASSERT_EQ(traces.size(), 6U);
  EXPECT_EQ(traces[0], "(ot_tblx_vrf_id_2_table_id): TableID 0x00000064 VrfID 0x60000007");
  EXPECT_EQ(traces[3], "(ot_tblx_table_id_2_vrf_id): TableID 0x00000064 VrfID 0x60000007");
}

}  // namespace
}  // namespace ot::test
