// The start-up: its order, what it makes of failures, and the connection to the interface manager.
#include "platform/service.h"

#include "core/connections.h"
#include "core/debug.h"
#include "platform/event_connections.h"
#include "platform/event_manager.h"
#include "platform/ledger_status.h"
#include "platform/memory/alloc_faults.h"
#include "platform/memory/controls.h"
#include "platform/memory/ledger_controls.h"
#include "sources/interface/client.h"
#include "sources/interface/table.h"
#include "state/ledger_state.h"
#include "state/timers.h"
#include "tests/unit/service_fixture.h"

namespace ot::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

// Puts what makes `track` follow `interface` into the store, as an earlier run left it.
void store_interface_track(const std::string& track, const std::string& interface) {
  for (const ledger_proposal& item : interface_track(track, interface)) {
    ledger_control_put(item.path, item.kind, item.value);
  }
}

class start_up : public service_fixture {
 protected:
  // Runs ot_init; the status that the process ended with, or -1.
  int exit_status() {
    try {
      ot_init(manager);
    } catch (const process_exited& end) {
      return end.status;
    }
    return -1;
  }
};

TEST_F(start_up, of_a_router_without_configuration_is_silent) {
  EXPECT_EQ(start(), 0);
  EXPECT_THAT(field::take_messages(), IsEmpty());
  EXPECT_EQ(hash_db_count(tracks_table), 0U);
  EXPECT_TRUE(is_bound_ot_ha_ledger);
  EXPECT_NE(tracks_calc_timer, nullptr);
  EXPECT_NE(tracks_nfn_timer, nullptr);
}

TEST_F(start_up, applies_the_stored_configuration_after_everything_it_needs) {
  field::interface_added("Gi1", true);
  store_interface_track("up", "Gi1");
  store_interface_track("absent", "Gi9");
  ASSERT_EQ(start(), 0);
  EXPECT_EQ(track("up").state, track_state::up);
  EXPECT_EQ(track("absent").state, track_state::unknown);
  EXPECT_EQ(published("up"), 1U);
  EXPECT_EQ(published("absent"), 2U);
  EXPECT_EQ(field::events_published(), 2U);
  field::advance(std::chrono::milliseconds{100});
  EXPECT_THAT(take_notifications(), ElementsAre("up set 1", "absent set 0"));
}

TEST_F(start_up, knows_a_restart_before_it_applies_the_configuration) {
  store_interface_track("absent", "Gi9");
  const auto up = bytes_of_numbers({1});
  ledger_control_put("/oper/gl/object-tracking/absent", ledger_kind::u32, up);
  ASSERT_EQ(start(2), 0);
  // Taken over as up, then found to be unknown.
  EXPECT_THAT(field::take_messages(),
              ElementsAre("OT-SERVICES-6-TRACK_INFO: track absent state Unknown"));
}

TEST_F(start_up, names_the_step_that_failed) {
  struct row {
    const char* operation;
    int code;
    const char* message;
  };
  for (const row& failing : {
           row{"dbg_register", 5, "trace flags (Operation not permitted)"},
           row{"evm_async_attach", 5, "timers (Invalid argument)"},
           row{"evm_init_sigevent", 5, "timers (Invalid argument)"},
       }) {
    field::fail_next(failing.operation, failing.code);
    EXPECT_NE(start(), 0) << failing.operation;
    EXPECT_THAT(
        field::take_messages(),
        Contains(std::string{"OT-SERVICES-3-INIT_FAIL: start-up failed at: "} + failing.message));
    stop();
  }
}

TEST_F(start_up, names_the_connection_that_failed) {
  struct row {
    const char* operation;
    const char* message;
  };
  for (const row& failing : {row{"vmap_c_lib_init", "VRF service (Permission denied)"},
                             row{"rtclient_init", "FIB (Permission denied)"}}) {
    field::fail_next(failing.operation, 13);
    EXPECT_EQ(start(), 13) << failing.operation;
    EXPECT_THAT(field::take_messages(),
                ElementsAre(std::string{"OT-SERVICES-3-INIT_FAIL: start-up failed at: "} +
                            failing.message));
    stop();
  }
}

TEST_F(start_up, without_memory_names_what_found_none) {
  text_lines said;
  for_each_failing_allocation([&] { ot_start(manager, 1); },
                              [&](std::uint64_t, bool hit) {
                                for (const std::string& line : field::take_messages()) {
                                  said.push_back(line);
                                }
                                if (hit) {
                                  stop();
                                  ASSERT_EQ(evm_create(&manager), 0);
                                }
                              },
                              200);
  const std::string failed = "OT-SERVICES-3-INIT_FAIL: start-up failed at: ";
  EXPECT_THAT(said, testing::Contains(failed + "timers (Invalid argument)"));
  for (const char* step : {"process timers", "track table", "interface table", "route table",
                           "probe table", "BFD table", "operational records"}) {
    EXPECT_THAT(said, testing::Contains(failed + step + " (Cannot allocate memory)"));
  }
}

// The names, modes and numbers are the platform's: its services know the client by them.
TEST_F(start_up, introduces_itself_to_the_routers_services_in_this_way) {
  field::take_introductions();
  ASSERT_EQ(start(), 0);
  text_lines said = field::take_introductions();
  const std::string bfd = "bfdc_bind_nb object_tracking 199 9";  // in a thread of its own
  EXPECT_EQ(std::erase(said, bfd), 1U);
  EXPECT_THAT(said, ElementsAre("evdl_publisher_register OBJECT_TRACKING 1 event_register_track 1",
                                "evm_conn_create 3", "ifc_control_server_bind 2",
                                "ifc_register_callback object-tracking", "ifc_attr_register 1",
                                "ifc_attr_register 66",
                                "vmap_c_lib_init 1 OT_mp_lkup unmanaged no "
                                "callback",
                                "vmap_c_lib_init 0 ot_vrf managed 1", "evm_conn_create 2",
                                "evm_conn_setretry 3 3", "evm_conn_notify 24576",
                                "rtclient_init object_tracking 1 3225"));
}

TEST_F(start_up, goes_on_past_a_stored_item_that_cannot_be_applied) {
  field::interface_added("Gi1");
  const std::string bad = track_path("bad", "type/list/0x7/thld_limits/val_up/0x0/val_dn");
  ledger_control_put(bad, ledger_kind::u32, bytes_of_numbers({1}));
  store_interface_track("good", "Gi1");
  EXPECT_EQ(start(), 0);
  EXPECT_EQ(track("good").state, track_state::up);
  EXPECT_EQ(hash_db_get_track_item("bad"), nullptr);
  EXPECT_THAT(field::take_messages(),
              ElementsAre("OT-SERVICES-6-TRACK_INFO: track good state Track_Up"));
  EXPECT_THAT(ledger_control_take_log(), ElementsAre(testing::HasSubstr(bad)));
}

TEST_F(start_up, fails_when_the_published_states_cannot_be_bound) {
  ledger_control_fail_next(ledger_operation::bind, ledger_unreachable);
  EXPECT_EQ(start(), ledger_unreachable);
  EXPECT_FALSE(is_bound_ot_ha_ledger);
  EXPECT_THAT(field::take_messages(),
              ElementsAre("OT-SERVICES-3-INIT_FAIL: start-up failed at: published states (The "
                          "service is not running)"));
}

TEST_F(start_up, goes_on_while_the_interface_manager_is_not_there_yet) {
  field::interface_added("Gi1");
  field::interface_manager_gone();
  store_interface_track("t", "Gi1");
  ASSERT_EQ(start(), 0);
  EXPECT_EQ(track("t").state, track_state::unknown);
  field::interface_manager_back();
  field::advance(std::chrono::seconds{1});
  EXPECT_EQ(track("t").state, track_state::up);
}

TEST_F(start_up, can_be_run_again_after_a_stop) {
  field::interface_added("Gi1");
  ASSERT_EQ(start(), 0);
  ASSERT_EQ(commit(interface_track("t", "Gi1")), 0);
  stop();
  EXPECT_EQ(hash_db_count(tracks_table), 0U);
  EXPECT_EQ(hash_db_count(interfaces_table), 0U);
  EXPECT_FALSE(is_bound_ot_ha_ledger);
  ASSERT_EQ(start(2), 0);
  EXPECT_EQ(track("t").state, track_state::up);
}

TEST_F(start_up, a_stop_forgets_that_it_was_a_restart) {
  ASSERT_EQ(start(2), 0);
  ASSERT_EQ(ot_is_restart(), 1U);
  stop();
  EXPECT_EQ(ot_is_restart(), 0U);
}

TEST_F(start_up, a_stop_leaves_the_interface_manager) {
  ASSERT_EQ(start(), 0);
  ASSERT_TRUE(connection_of(router_service::interface_manager).connected);
  stop();
  EXPECT_FALSE(connection_of(router_service::interface_manager).connected);
  field::interface_added("Gi1");
  field::run_pending();
  EXPECT_EQ(hash_db_count(interfaces_table), 0U);
}

TEST_F(start_up, without_an_event_connection_the_process_ends_with_1) {
  field::fail_next("evm_conn_create", 12);
  EXPECT_EQ(exit_status(), 1);
  EXPECT_THAT(field::take_messages(),
              ElementsAre("OT-SERVICES-3-INIT_FAIL: event_conn_create failed"));
}

TEST_F(start_up, when_the_connection_cannot_be_opened_the_process_ends_with_1) {
  field::fail_next("evm_conn_open", 5);
  EXPECT_EQ(exit_status(), 1);
  EXPECT_THAT(field::take_messages(),
              ElementsAre("OT-SERVICES-3-INIT_FAIL: event_conn_open failed"));
}

TEST_F(start_up, an_open_connection_is_0_and_one_in_progress_is_reported_as_such) {
  EXPECT_EQ(ot_init(manager), 0);
  field::interface_manager_gone();
  EXPECT_EQ(ot_init(manager), open_in_progress);
  EXPECT_EQ(static_cast<std::uint32_t>(open_in_progress), 0x21200e00U);
}

TEST_F(start_up, the_opening_is_traced) {
  ASSERT_EQ(ot_debug_init(manager), 0);
  trace();
  ot_init(manager);
  EXPECT_THAT(field::take_traces(), ElementsAre("(ot_init)", "(ot_ifm_open_func)"));
}

TEST(restart_flag, is_set_from_the_second_start_on) {
  for (const auto& [count, flag] : {std::pair{0U, 0U}, {1U, 0U}, {2U, 1U}, {77U, 1U}, {1U, 0U}}) {
    ot_set_restart(count);
    EXPECT_EQ(ot_is_restart(), flag) << count;
  }
}

}  // namespace
}  // namespace ot::test
