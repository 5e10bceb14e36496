// The engine on bfdd's vty socket beside others: what the user has configured and what routing
// protocols use is followed and never touched, and what earlier runs of ours have left is found.
#include "tests/contract/linux/bfd_vty_fixture.h"

namespace ot::testing {
namespace {

using namespace std::chrono_literals;
using contract::let_pass;

class bfd_vty_others : public bfd_vty_fixture {
 protected:
  void make_dynamic(const vty_key& key) {
    vty_peer peer;
    peer.configured = false;
    peer.protocol = true;
    bfdd().peers()[key] = peer;
  }
  // The engine runs and has found that somebody else has its session.
  void start_following() {
    start();
    engine().add(session(1));
    ASSERT_TRUE(run_until([&] { return status(1).of_another; }));
    settle();
  }
  void come_up(const vty_key& key) {
    bfdd().set_state(key, "up");
    EXPECT_EQ(wait_reported(1), texts{"up 1"});
  }
  // Nothing has been configured at all.
  void expect_untouched() {
    EXPECT_EQ(bfdd().count("configure"), 0U);
    EXPECT_EQ(bfdd().count("peer"), 0U);
    EXPECT_EQ(bfdd().count("no peer"), 0U);
  }
};

TEST_F(bfd_vty_others, a_peer_of_the_user_is_followed_and_left_alone) {
  configure_peer(key(1));
  start_following();
  come_up(key(1));
  engine().remove(session(1).key);
  settle();
  expect_untouched();
  EXPECT_EQ(bfdd().peers().size(), 1U);
}

TEST_F(bfd_vty_others, a_peer_of_the_user_with_a_profile_of_his_own_is_his) {
  configure_peer(key(1), "fast");
  start_following();
  expect_untouched();
}

TEST_F(bfd_vty_others, a_session_of_a_routing_protocol_is_followed_and_left_alone) {
  make_dynamic(key(1));
  start_following();
  come_up(key(1));
  end_engine();
  expect_untouched();
}

// FRR refuses the same peer with and without an interface.
TEST_F(bfd_vty_others, a_peer_without_an_interface_stands_for_that_on_each) {
  const vty_key unbound{"10.0.0.1", ""};
  configure_peer(unbound);
  start_following();
  come_up(unbound);
  expect_untouched();
}

TEST_F(bfd_vty_others, a_session_that_the_other_gives_up_becomes_ours) {
  configure_peer(key(1));
  start_following();
  come_up(key(1));
  bfdd().peers().clear();
  EXPECT_EQ(wait_reported(1), texts{"down 1"});
  wait_peers(1);
  settle();
  EXPECT_EQ(bfdd().peers().at(key(1)).profile, mark() + "-d");
  EXPECT_FALSE(status(1).of_another);
}

// bfdd shows a session of ours that a protocol has come to use, too, as ours alone.
TEST_F(bfd_vty_others, a_session_of_ours_that_a_protocol_uses_lives_on_for_it) {
  start();
  bring_up(1);
  bfdd().peers().at(key(1)).protocol = true;
  engine().remove(session(1).key);
  ASSERT_TRUE(run_until([&] { return bfdd().count("no peer") == 1; }));
  settle();
  EXPECT_EQ(bfdd().peers().at(key(1)).status, "up");
  EXPECT_FALSE(bfdd().peers().at(key(1)).configured);
}

TEST_F(bfd_vty_others, a_session_that_is_taken_from_us_and_lives_on_is_followed) {
  start();
  bring_up(1);
  bfdd().peers().at(key(1)).protocol = true;
  bfdd().peers().at(key(1)).configured = false;  // somebody's "no peer"
  ASSERT_TRUE(run_until([&] { return status(1).of_another; }));
  EXPECT_EQ(reported(), texts{});
  bfdd().forget_commands();
  engine().remove(session(1).key);
  settle();
  expect_untouched();
}

TEST_F(bfd_vty_others, what_an_earlier_run_has_left_goes_on_when_it_is_wanted) {
  configure_peer(key(1), mark());
  bfdd().peers().at(key(1)).status = "up";
  start();
  engine().add(session(1));
  EXPECT_EQ(wait_reported(1), texts{"up 1"});
  let_pass(manager(), 3500ms);
  EXPECT_EQ(bfdd().count("no peer"), 0U);
  EXPECT_EQ(bfdd().peers().at(key(1)).receive, 50U);
  EXPECT_FALSE(status(1).of_another);
  EXPECT_EQ(reported(), texts{});
}

TEST_F(bfd_vty_others, what_an_earlier_run_has_left_goes_when_nobody_wants_it) {
  const std::string of_other_instance = mark().substr(0, mark().size() - 1) + "x";
  configure_peer(key(1), mark());
  configure_peer(key(2), of_other_instance);
  configure_peer(key(3), "fast");
  configure_peer(key(4));
  start();
  ASSERT_TRUE(run_until([&] { return !bfdd().peers().contains(key(1)); }));
  settle();
  EXPECT_EQ(bfdd().peers().size(), 3U);
  EXPECT_EQ(bfdd().count("peer "), 1U);
}

TEST_F(bfd_vty_others, two_instances_of_ours_share_a_session) {
  configure_peer(key(1), "object-tracking-ffffffff");
  start_following();
  expect_untouched();
}

TEST_F(bfd_vty_others, logging_that_the_user_has_switched_on_stays_on) {
  bfdd().logs_sessions() = true;
  start();
  bring_up(1);
  EXPECT_EQ(bfdd().count("debug"), 0U);
  EXPECT_EQ(bfdd().peers().at(key(1)).profile, mark());
  engine().remove(session(1).key);
  wait_peers(0);
  settle();
  EXPECT_EQ(bfdd().count("no debug"), 0U);
}

TEST_F(bfd_vty_others, logging_that_a_crashed_run_has_switched_on_is_switched_off) {
  bfdd().logs_sessions() = true;
  configure_peer(key(1), mark() + "-d");
  start();
  wait_peers(0);
  EXPECT_TRUE(run_until([&] { return !bfdd().logs_sessions(); }));
}

TEST_F(bfd_vty_others, a_session_that_vanishes_is_made_again) {
  start();
  bring_up(1);
  bfdd().peers().clear();  // somebody has loaded a configuration without it
  bfdd().logs_sessions() = false;
  EXPECT_EQ(wait_reported(1), texts{"down 1"});
  wait_peers(1);
  settle();
  EXPECT_TRUE(bfdd().logs_sessions());
}

TEST_F(bfd_vty_others, nothing_is_made_while_bfdd_may_still_load_the_users_configuration) {
  bfdd().listen(false);
  start_engine();
  ASSERT_EQ(wait_reported(1), texts{"runs"});
  engine().add(session(1));
  let_pass(manager(), 1000ms);
  EXPECT_EQ(bfdd().count("peer "), 0U);
  configure_peer(key(1));
  ASSERT_TRUE(run_until([&] { return status(1).of_another; }));
  let_pass(manager(), 2000ms);
  expect_untouched();
}

}  // namespace
}  // namespace ot::testing
