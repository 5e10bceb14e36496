// Opening the interface manager connection, and the look-ups.
#include "sources/interface/client.h"

#include <cstring>

#include "core/in_addr_text.h"
#include "platform/event_connections.h"
#include "platform/memory/controls.h"
#include "platform/status.h"
#include "sources/interface/table.h"
#include "tests/unit/service_fixture.h"

namespace ot::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr int refused_code = 13;
constexpr const char* refused_text = "Permission denied";

class ifm_open : public service_fixture {
 protected:
  void SetUp() override {
    ASSERT_EQ(tracks_table_create(), 0);
    ASSERT_EQ(interfaces_table_create(), 0);
    trace();
  }
  std::uint32_t open() { return ot_ifm_open_func(manager); }

  // An open that fails: what it logs and traces about it.
  void expect_failure(const text_lines& messages, const std::string& traced) {
    EXPECT_EQ(open(), 0xFFFFFFFF);
    EXPECT_EQ(field::take_messages(), messages);
    EXPECT_THAT(field::take_traces(), ElementsAre("(ot_ifm_open_func)", traced));
    EXPECT_THAT(field::failures_left(), IsEmpty());
  }
};

TEST_F(ifm_open, returns_the_connections_id) {
  const std::uint32_t id = open();
  EXPECT_NE(id, 0U);
  EXPECT_NE(id, evm_no_connection);
  std::uint32_t asked = 0;
  EXPECT_EQ(ifc_conn_ctx_to_connid(ot_ifm_conn_ctx, &asked), 0);
  EXPECT_EQ(asked, id);
  EXPECT_THAT(field::take_messages(), IsEmpty());
  EXPECT_THAT(field::take_traces(), ElementsAre("(ot_ifm_open_func)"));
}

TEST_F(ifm_open, a_failing_bind_is_traced_only) {
  field::fail_next("ifc_control_server_bind", refused_code);
  expect_failure({},
                 "(ot_ifm_open_func) : object tracking IFM Bind: Bind to IFM failed "
                 "(Permission denied)");
}

TEST_F(ifm_open, a_connection_without_id_is_reported) {
  field::fail_next("ifc_conn_ctx_to_connid", refused_code);
  expect_failure(
      {"OT-SERVICES-3-INIT_FAIL: ifc_conn_ctx_to_connid failed (Permission denied)"},
      "(ot_ifm_open_func) : object tracking ifc_conn_ctx_to_connid failed (Permission denied)");
}

TEST_F(ifm_open, a_refused_callback_is_reported) {
  field::fail_next("ifc_register_callback", refused_code);
  expect_failure(
      {"OT-SERVICES-3-INIT_FAIL: ifc_register_callback failed (Permission denied)"},
      "(ot_ifm_open_func) : object tracking ifc_register_callback failed (Permission denied)");
}

struct attribute_row {
  const char* label;
  unsigned registered_before;
};
const attribute_row attributes[] = {{"state", 0}, {"red", 1}};

TEST_F(ifm_open, an_attribute_whose_registration_fails_ends_it) {
  for (const attribute_row& row : attributes) {
    field::fail_next("ifc_attr_register", refused_code, 0, row.registered_before);
    const std::string text =
        std::string{"ifc_attr_register API failed "} + row.label + " (" + refused_text + ")";
    expect_failure({"OT-SERVICES-3-INIT_FAIL: " + text},
                   "(ot_ifm_open_func) : object tracking " + text);
  }
}

TEST_F(ifm_open, an_attribute_that_the_server_refuses_is_done_without) {
  for (const attribute_row& row : attributes) {
    field::fail_next("ifc_attr_register", 0, refused_code, row.registered_before);
    EXPECT_NE(open(), evm_no_connection);
    EXPECT_EQ(field::take_messages(),
              text_lines{std::string{"OT-SERVICES-3-INIT_FAIL: ifc_attr_register failed "} +
                         row.label + " : Permission denied (0xd)"});
    EXPECT_THAT(field::take_traces(),
                ElementsAre("(ot_ifm_open_func)",
                            std::string{"(ot_ifm_open_func) : object tracking ifc_attr_register "} +
                                row.label + " failed (Permission denied)"));
  }
}

TEST_F(ifm_open, opening_again_drops_the_old_connection) {
  ASSERT_NE(open(), evm_no_connection);
  const ifc_conn_ctx first = ot_ifm_conn_ctx;
  ASSERT_NE(open(), evm_no_connection);
  std::uint32_t id = 0;
  EXPECT_NE(ifc_conn_ctx_to_connid(first, &id), 0);
  EXPECT_EQ(ifc_conn_ctx_to_connid(ot_ifm_conn_ctx, &id), 0);
}

TEST_F(ifm_open, after_a_failure_leaves_no_connection_behind) {
  for (const char* operation :
       {"ifc_conn_ctx_to_connid", "ifc_register_callback", "ifc_attr_register"}) {
    field::fail_next(operation, refused_code);
    EXPECT_EQ(open(), evm_no_connection);
    const ifc_conn_ctx failed = ot_ifm_conn_ctx;
    ASSERT_NE(open(), evm_no_connection);
    std::uint32_t id = 0;
    EXPECT_NE(ifc_conn_ctx_to_connid(failed, &id), 0) << operation;
  }
}

class ifm_look_ups : public running_service {};

TEST_F(ifm_look_ups, give_handles_names_and_states) {
  const std::uint32_t up = field::interface_added("Gi1", true);
  const std::uint32_t down = field::interface_added("Gi2", false);
  std::uint32_t handle = 0;
  EXPECT_EQ(ot_dpv_get_ifhandle("Gi1", &handle), 0);
  EXPECT_EQ(handle, up);
  char name[64];
  EXPECT_EQ(ot_dpv_get_ifname(name, down), 0);
  EXPECT_STREQ(name, "Gi2");
  std::uint32_t state = 0;
  EXPECT_EQ(ot_ifc_state_query(up, 0, &state), 0);
  EXPECT_EQ(state, ifm_state_up);
  EXPECT_EQ(ot_ifc_state_query(down, 0, &state), 0);
  EXPECT_EQ(state, ifm_state_down);
}

TEST_F(ifm_look_ups, of_what_does_not_exist_give_the_items_status) {
  std::uint32_t result = 4711;
  EXPECT_EQ(ot_dpv_get_ifhandle("Gi9", &result), not_found_errno);
  EXPECT_EQ(ot_ifc_state_query(999, 0, &result), not_found_errno);
  EXPECT_EQ(result, 4711U);
}

TEST_F(ifm_look_ups, an_api_error_goes_before_the_items_status) {
  std::uint32_t result = 0;
  char name[64];
  for (const char* operation : {"ifc_interface_find", "ifc_state_query", "ifc_interface_name"}) {
    field::fail_next(operation, 5, 7);
  }
  EXPECT_EQ(ot_dpv_get_ifhandle("Gi9", &result), 5);
  EXPECT_EQ(ot_ifc_state_query(999, 0, &result), 5);
  EXPECT_EQ(ot_dpv_get_ifname(name, 999), 5);
}

TEST_F(ifm_look_ups, a_name_is_copied_and_traced_even_after_a_failure) {
  trace();
  char name[64];
  std::memset(name, 'x', sizeof name);
  EXPECT_EQ(ot_dpv_get_ifname(name, 0xabc), not_found_errno);
  EXPECT_STREQ(name, "");
  EXPECT_THAT(field::take_traces(), ElementsAre("(ot_dpv_get_ifname) : ifhandle abc, ifname "));
}

TEST_F(ifm_look_ups, names_are_cut_at_63_characters) {
  const std::string longest(63, 'i');
  const std::uint32_t added = field::interface_added(longest);
  std::uint32_t handle = 0;
  EXPECT_EQ(ot_dpv_get_ifhandle((longest + "tail").c_str(), &handle), 0);
  EXPECT_EQ(handle, added);
  char name[64];
  EXPECT_EQ(ot_dpv_get_ifname(name, handle), 0);
  EXPECT_EQ(name, longest);
}

TEST(in_addr_text, is_dotted_decimal_of_network_order) {
  const unsigned char octets[] = {10, 0, 255, 1};
  std::uint32_t address;
  std::memcpy(&address, octets, sizeof address);
  EXPECT_STREQ(in_addr_s(address), "10.0.255.1");
  EXPECT_STREQ(in_addr_s(0), "0.0.0.0");
  EXPECT_STREQ(in_addr_s(0xffffffff), "255.255.255.255");
}

TEST(in_addr_text, several_stand_side_by_side) {
  const char* first = in_addr_s(0);
  const char* second = in_addr_s(0xffffffff);
  const char* third = in_addr_s(0x01010101);
  EXPECT_STREQ(first, "0.0.0.0");
  EXPECT_STREQ(second, "255.255.255.255");
  EXPECT_STREQ(third, "1.1.1.1");
}

}  // namespace
}  // namespace ot::test
