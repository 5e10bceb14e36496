// The BFD client where another of the engine's clients, a routing protocol say, has the session
// that is asked for: there can be one only, so the client follows it and takes its place when it
// goes.
#include "tests/contract/linux/bfd_client_fixture.h"

namespace ot::testing {
namespace {

using nlohmann::json;

class bfd_others : public bfd_client_fixture, public ::testing::WithParamInterface<const char*> {
 protected:
  // Session 1 is another's, bound to the interface of the parameter; ours has been refused.
  void SetUp() override {
    bfd_client_fixture::SetUp();
    start();
    engine().sessions()["uplink"] =
        json{{"peer-address", address(1)}, {"local-interface", GetParam()}, {"state", "up"}};
    ASSERT_EQ(create(1), 0);
    ASSERT_EQ(wait_reported(2), (reported_list{"created 1", "up 1"}));
  }
};

TEST_P(bfd_others, its_state_is_reported) {
  bfdc_session_status told;
  ASSERT_TRUE(bfdc_session(101, {bfd_family_ipv4, {10, 0, 0, 1}}, &told));
  EXPECT_TRUE(told.of_another);
  EXPECT_EQ(told.remote_state, bfd_state_up) << "or ours would not be";
  EXPECT_EQ(told.problem.view(), "bfdd refuses it; it may be somebody else's session");
  engine().set_state("uplink", "down");
  EXPECT_EQ(wait_reported(1), reported_list{"down 1"});
  engine().set_state("uplink", "up");
  EXPECT_EQ(wait_reported(1), reported_list{"up 1"});
}

TEST_P(bfd_others, its_end_makes_room) {
  engine().drop("uplink");
  EXPECT_EQ(wait_reported(1), reported_list{"down 1"});
  ASSERT_TRUE(run_until([&] { return !label(1).empty(); }));
  engine().set_state(label(1), "up");
  EXPECT_EQ(wait_reported(1), reported_list{"up 1"});
  EXPECT_EQ(engine().sessions().size(), 1U);
}

// As bfdd does for a session that was configured in its own shell.
TEST_P(bfd_others, its_silent_end_makes_room) {
  engine().sessions().clear();
  EXPECT_EQ(wait_reported(1), reported_list{"down 1"});
  ASSERT_TRUE(run_until([&] { return !label(1).empty(); }));
  engine().set_state(label(1), "up");
  EXPECT_EQ(wait_reported(1), reported_list{"up 1"});
}

TEST_P(bfd_others, giving_ours_up_leaves_it_alone) {
  ASSERT_EQ(remove(1), 0);
  EXPECT_EQ(wait_reported(1), reported_list{"gone 1"});
  engine().set_state("uplink", "down");
  ASSERT_EQ(create(2), 0);
  EXPECT_EQ(wait_reported(1), reported_list{"created 2"});
  EXPECT_TRUE(engine().requests(3).empty());
  EXPECT_EQ(engine().sessions().count("uplink"), 1U);
}

TEST_P(bfd_others, other_sessions_of_others_are_not_followed) {
  engine().sessions()["elsewhere"] = json{{"peer-address", address(9)}, {"state", "down"}};
  engine().sessions()["over_v9"] = json{{"peer-address", address(1)}, {"local-interface", "v9"}};
  engine().set_state("elsewhere", "down");
  engine().set_state("over_v9", "down");
  engine().notify(
      {{"op", "status"}, {"peer-address", address(1)}, {"multihop", true}, {"state", "down"}});
  engine().set_state("uplink", "adm-down");
  EXPECT_EQ(wait_reported(1), reported_list{"down 1"});
  EXPECT_EQ(reported(), reported_list{});
}

INSTANTIATE_TEST_SUITE_P(bound, bfd_others, ::testing::Values("v1", ""));

}  // namespace
}  // namespace ot::testing
