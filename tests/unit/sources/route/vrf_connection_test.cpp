// The connection to the VRF information service: its set-up, its end and its return.
#include "sources/route/vrf.h"

#include "tests/unit/sources/route/fixture.h"

namespace ot::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Not;

constexpr int refused_code = 13;

class vrf_connection : public route_service {
 protected:
  static bool bound() {
    return vmap_lookup_library.id != not_bound && vmap_registration_library.id != not_bound;
  }
  static bool unbound() {
    return vmap_lookup_library.id == not_bound && vmap_registration_library.id == not_bound;
  }
};

TEST_F(vrf_connection, is_bound_after_the_start) {
  EXPECT_TRUE(bound());
}

struct failing_step {
  const char* operation;
  unsigned let_through;
  const char* traced;
};

class vrf_set_up : public service_fixture, public testing::WithParamInterface<failing_step> {};

TEST_P(vrf_set_up, ends_at_a_failing_step_and_says_which) {
  const failing_step& step = GetParam();
  field::fail_next(step.operation, refused_code, 0, step.let_through);
  trace();
  EXPECT_EQ(ot_vmap_init(manager), refused_code);
  EXPECT_THAT(field::take_traces(), ElementsAre(std::string{"ot_vmap_init(): VMAP "} + step.traced +
                                                " Permission denied"));
}

INSTANTIATE_TEST_SUITE_P(
    steps, vrf_set_up,
    testing::Values(failing_step{"vmap_c_lib_init", 0, "lookup library init,"},
                    failing_step{"vmap_c_lib_init", 1, "VRF reg library init,"},
                    failing_step{"evm_conn_create", 0, "event conn create"},
                    failing_step{"evm_conn_setretry", 0, "event conn setretry"},
                    failing_step{"evm_conn_notify", 0, "event conn notify"},
                    failing_step{"evm_conn_open", 0, "event conn open"}));

TEST_F(vrf_connection, loses_both_bindings_with_the_service_and_finds_it_again) {
  add_blue();
  trace();
  field::vrf_service_gone();
  field::run_pending();
  EXPECT_TRUE(unbound());
  EXPECT_THAT(field::take_traces(), Contains("ot_vmap_close(): In VMAP close handler"));
  EXPECT_EQ(ot_vmap_vrf_name_2_vrf_id("blue"), 0U);
  field::vrf_service_back();
  field::take_traces();
  field::advance(std::chrono::seconds{10});
  EXPECT_TRUE(bound());
  EXPECT_THAT(field::take_traces(), Contains("ot_vmap_open(): VMAP conn open handler called"));
  EXPECT_EQ(ot_vmap_vrf_name_2_vrf_id("blue"), blue_id);
}

TEST_F(vrf_connection, is_tried_every_three_seconds_and_never_less_often) {
  field::vrf_service_gone();
  field::run_pending();
  trace();
  const std::string opening = "ot_vmap_open(): VMAP conn open handler called";
  for (int attempt = 0; attempt < 5; ++attempt) {
    field::advance(std::chrono::milliseconds{2999});
    EXPECT_THAT(field::take_traces(), Not(Contains(opening))) << attempt;
    field::advance(std::chrono::milliseconds{1});
    EXPECT_THAT(field::take_traces(), Contains(opening).Times(1)) << attempt;
  }
}

TEST_F(vrf_connection, registrations_are_not_made_again_after_a_restart_of_the_service) {
  ASSERT_EQ(create("t", "blue"), 0);
  trace();
  field::vrf_service_gone();
  field::run_pending();
  field::vrf_service_back();
  field::advance(std::chrono::seconds{10});
  for (const std::string& line : field::take_traces()) {
    EXPECT_EQ(line.find("ot_vmap_vrf_add"), std::string::npos) << line;
  }
}

TEST_F(vrf_connection, an_unknown_close_event_leaves_the_bindings_alone) {
  trace();
  ot_vmap_close(nullptr, 0x1000);
  EXPECT_TRUE(bound());
  EXPECT_THAT(field::take_traces(),
              ElementsAre("ot_vmap_close(): In VMAP close handler",
                          "ot_vmap_close(): Unknown event mgr connection event 0x1000"));
}

TEST_F(vrf_connection, either_close_event_unbinds) {
  for (const std::uint32_t event : {0x2000U, 0x4000U}) {
    ot_vmap_close(nullptr, event);
    EXPECT_TRUE(unbound()) << event;
    ot_vmap_open(nullptr);
    EXPECT_TRUE(bound()) << event;
  }
}

TEST_F(vrf_connection, an_open_whose_look_up_binding_fails_stops) {
  const std::int32_t registration = vmap_registration_library.id;
  field::fail_next("vmap_c_bind", refused_code);
  trace();
  ot_vmap_open(nullptr);
  EXPECT_EQ(vmap_lookup_library.id, not_bound);
  EXPECT_EQ(vmap_registration_library.id, registration);
  EXPECT_THAT(
      field::take_traces(),
      ElementsAre("ot_vmap_open(): VMAP conn open handler called",
                  "(ot_vmap_lookup_init): VMAP lookup bind, Permission denied",
                  "ot_vmap_open():VMAP lookup init failed after restart, Permission denied"));
}

TEST_F(vrf_connection, an_open_whose_registration_binding_fails_can_look_up) {
  field::fail_next("vmap_c_bind", refused_code, 0, 1);
  trace();
  ot_vmap_open(nullptr);
  EXPECT_NE(vmap_lookup_library.id, not_bound);
  EXPECT_EQ(vmap_registration_library.id, not_bound);
  EXPECT_THAT(field::take_traces(),
              ElementsAre("ot_vmap_open(): VMAP conn open handler called",
                          "ot_vmap_open(): VMAP bind failed, Permission denied"));
}

TEST_F(vrf_connection, the_callback_ignores_what_it_does_not_know) {
  field::route_added(net, 16, "eth0", blue_table);
  add_blue();
  ASSERT_EQ(create("t", "blue"), 0);
  trace();
  ot_vmap_vrf_callback(vmap_event_delete, nullptr);
  EXPECT_THAT(field::take_traces(),
              ElementsAre("(ot_vmap_vrf_callback)",
                          "(ot_vmap_vrf_callback): VMAP invoked callback with NULL table item"));
  const vmap_vrf blue{vrf_text{"blue"}, blue_id};
  ot_vmap_vrf_callback(2, &blue);
  EXPECT_THAT(field::take_traces(), ElementsAre("(ot_vmap_vrf_callback)"));
  EXPECT_EQ(published("t"), 1U);
}

class vrf_waiting : public service_fixture {};

TEST_F(vrf_waiting, for_a_service_that_is_not_there_yet_is_no_failure_and_traced) {
  field::vrf_service_gone();
  trace();
  EXPECT_EQ(ot_vmap_init(manager), 0);
  EXPECT_EQ(field::take_traces().back(),
            "ot_vmap_init(): VMAP event conn open retry, The open is still in progress");
  EXPECT_EQ(vmap_lookup_library.id, not_bound);
  field::vrf_service_back();
  field::advance(std::chrono::seconds{10});
  EXPECT_NE(vmap_lookup_library.id, not_bound);
  ot_vmap_stop();
}

}  // namespace
}  // namespace ot::test
