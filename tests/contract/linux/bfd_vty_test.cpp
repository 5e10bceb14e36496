// The engine on bfdd's vty socket, and a bfdd that does what FRR's does: sessions made, followed,
// changed and withdrawn.
#include <algorithm>

#include "tests/contract/linux/bfd_vty_fixture.h"
#include "tests/contract/linux/stopwatch.h"

namespace ot::testing {
namespace {

using namespace std::chrono_literals;
using contract::let_pass;

class bfd_vty : public bfd_vty_fixture {};

TEST_F(bfd_vty, a_bfdd_that_answers_runs_and_is_known_by_its_version) {
  start();
  EXPECT_EQ(engine().status().name, "FRR 10.3, vty socket");
  EXPECT_TRUE(engine().status().running);
  EXPECT_EQ(bfdd().commands().at(0), "enable");
}

TEST_F(bfd_vty, nothing_is_changed_and_nothing_asked_while_no_session_is_wanted) {
  start();
  bfdd().forget_commands();
  let_pass(manager(), 1500ms);
  EXPECT_EQ(bfdd().commands(), texts{});
  EXPECT_FALSE(bfdd().logs_sessions());
}

TEST_F(bfd_vty, a_session_is_made_with_all_that_names_it) {
  start();
  bfdd().forget_commands();
  engine().add(session(1, 70, 5));
  wait_peers(1);
  settle();
  const vty_peer& peer = bfdd().peers().at(key(1));
  EXPECT_EQ(peer.local, "10.0.0.254");
  EXPECT_EQ(peer.profile, mark() + "-d");
  EXPECT_EQ(peer.receive, 70U);
  EXPECT_EQ(peer.transmit, 70U);
  EXPECT_EQ(peer.multiplier, 5U);
  EXPECT_FALSE(peer.shut);
  EXPECT_EQ(bfdd().count("peer 10.0.0.1 interface v1 local-address 10.0.0.254"), 1U);
  EXPECT_EQ(bfdd().count("write"), 0U);
}

TEST_F(bfd_vty, every_block_of_commands_leaves_the_peer_and_the_configuration) {
  start();
  bfdd().forget_commands();
  engine().add(session(1));
  engine().add(session(2));
  wait_peers(2);
  settle();
  std::size_t depth = 0;
  for (const std::string& command : bfdd().commands()) {
    if (command == "configure terminal") {
      ASSERT_EQ(depth, 0U);
      depth = 1;
    } else if (command.starts_with("peer ")) {
      ASSERT_EQ(depth, 1U) << command;
      depth = 2;
    } else if (command == "exit") {
      ASSERT_EQ(depth, 2U);
      depth = 1;
    } else if (command == "end") {
      ASSERT_EQ(depth, 1U);
      depth = 0;
    }
  }
  EXPECT_EQ(depth, 0U);
}

TEST_F(bfd_vty, the_lists_are_looked_at_before_a_session_is_made) {
  start();
  bfdd().forget_commands();
  engine().add(session(1));
  wait_peers(1);
  texts looks;
  for (const std::string& command : bfdd().commands()) {
    if (command.starts_with("peer ")) {
      break;
    }
    if (command.starts_with("show ") && !command.ends_with("counters json")) {
      looks.push_back(command);
    }
  }
  ASSERT_GE(looks.size(), 2U);
  EXPECT_EQ(looks[looks.size() - 2], "show running-config");
  EXPECT_EQ(looks[looks.size() - 1], "show bfd peers json");
}

TEST_F(bfd_vty, a_state_is_reported_from_the_log_at_once) {
  start();
  bring_up(1);
  const stopwatch watch;
  bfdd().set_state(key(1), "down", "control-expired");
  EXPECT_EQ(wait_reported(1), texts{"down 1"});
  EXPECT_LT(watch.taken(), 50ms);
  EXPECT_EQ(status(1).diagnostic, 1);
}

TEST_F(bfd_vty, a_session_that_is_up_is_told_of_with_what_both_ends_agreed_on) {
  start();
  bring_up(1);
  ASSERT_TRUE(run_until([&] { return status(1).detection_time != 0; }));
  EXPECT_EQ(status(1).transmit_interval, 50'000U);
  EXPECT_EQ(status(1).receive_interval, 70'000U);
  EXPECT_EQ(status(1).detection_time, 280'000U);
  ASSERT_TRUE(run_until([&] { return status(1).packets_in == 11 && status(1).ups == 1; }));
  EXPECT_EQ(status(1).packets_out, 12U);
  EXPECT_FALSE(status(1).of_another);
  EXPECT_TRUE(status(1).problem.empty());
}

TEST_F(bfd_vty, what_the_log_does_not_tell_is_found_within_two_seconds) {
  start();
  bring_up(1);
  bfdd().set_state_silently(key(1), "shutdown");
  const stopwatch watch;
  EXPECT_EQ(wait_reported(1), texts{"admin 1"});
  EXPECT_LT(watch.taken(), 2s);
}

TEST_F(bfd_vty, a_fall_between_two_looks_is_known_by_its_counter) {
  start();
  bring_up(1);
  ASSERT_TRUE(run_until([&] { return status(1).ups == 1; }));
  bfdd().set_state_silently(key(1), "down");
  bfdd().set_state_silently(key(1), "up");
  EXPECT_EQ(wait_reported(2), (texts{"down 1", "up 1"}));
}

TEST_F(bfd_vty, other_intervals_change_the_session_in_place) {
  start();
  bring_up(1);
  bfdd().forget_commands();
  engine().add(session(1, 100, 4));
  ASSERT_TRUE(run_until([&] { return bfdd().peers().at(key(1)).multiplier == 4; }));
  EXPECT_EQ(bfdd().peers().at(key(1)).receive, 100U);
  EXPECT_EQ(bfdd().count("no peer"), 0U);
  settle();
  EXPECT_EQ(reported(), texts{});
}

TEST_F(bfd_vty, a_session_asked_for_twice_is_made_once) {
  start();
  bring_up(1);
  bfdd().forget_commands();
  engine().add(session(1));
  settle();
  EXPECT_EQ(bfdd().count("peer "), 0U);
}

TEST_F(bfd_vty, a_session_given_up_leaves_nothing) {
  start();
  bring_up(1);
  engine().remove(session(1).key);
  wait_peers(0);
  ASSERT_TRUE(run_until([&] { return !bfdd().logs_sessions(); }));
  EXPECT_EQ(reported(), texts{});
}

TEST_F(bfd_vty, nothing_is_ever_shut) {
  start();
  bring_up(1);
  engine().remove(session(1).key);
  wait_peers(0);
  settle();
  EXPECT_EQ(bfdd().count("shutdown"), 0U);
}

TEST_F(bfd_vty, a_session_given_up_before_it_was_made_is_not_made) {
  start();
  engine().add(session(1));
  engine().remove(session(1).key);
  settle();
  EXPECT_EQ(bfdd().count("peer "), 0U);
  EXPECT_TRUE(bfdd().peers().empty());
}

TEST_F(bfd_vty, a_session_given_up_and_asked_for_again_stays) {
  start();
  bring_up(1);
  bfdd().forget_commands();
  engine().remove(session(1).key);
  engine().add(session(1));
  settle();
  EXPECT_EQ(bfdd().count("no peer"), 0U);
  EXPECT_EQ(bfdd().peers().size(), 1U);
}

TEST_F(bfd_vty, a_session_given_up_while_it_is_made_leaves_nothing) {
  start();
  bfdd().react([&](fake_vty&, const std::string& command) {
    if (command.starts_with("profile")) {
      engine().remove(session(1).key);
    }
    return false;
  });
  engine().add(session(1));
  ASSERT_TRUE(run_until([&] { return bfdd().count("no peer") == 1; }));
  settle();
  EXPECT_TRUE(bfdd().peers().empty());
}

TEST_F(bfd_vty, a_clean_end_leaves_nothing) {
  start();
  bring_up(1);
  bring_up(2);
  bfdd().forget_commands();
  end_beside_bfdd();
}

// What bfdd is about to do when the service ends.
class bfd_vty_end : public bfd_vty_fixture, public ::testing::WithParamInterface<const char*> {};

TEST_P(bfd_vty_end, amid_a_command_leaves_nothing) {
  start();
  bool asked = false;
  bfdd().react([&](fake_vty&, const std::string& command) {
    asked = asked || command == GetParam();
    return asked;
  });
  engine().add(session(1, 70));
  ASSERT_TRUE(run_until([&] { return asked; }));
  bfdd().react(nullptr);
  end_beside_bfdd([&] {
    const vty_answer late = bfdd().obey(GetParam());
    bfdd().answer(late.code, late.text);
  });
  EXPECT_EQ(reported(), texts{});
}

INSTANTIATE_TEST_SUITE_P(every, bfd_vty_end,
                         ::testing::Values("debug bfd peer", "show bfd peers json", "bfd",
                                           "peer 10.0.0.1 interface v1 local-address 10.0.0.254",
                                           "receive-interval 70", "exit", "end"));

TEST_F(bfd_vty, a_session_without_an_address_says_so) {
  start();
  bfd::session_config from_nowhere = session(1);
  from_nowhere.source = 0;
  engine().add(from_nowhere);
  ASSERT_TRUE(run_until([&] { return !status(1).problem.empty(); }));
  EXPECT_EQ(status(1).problem, "the interface has no IPv4 address to speak from");
  EXPECT_EQ(bfdd().count("peer "), 0U);
}

TEST_F(bfd_vty, an_interface_whose_name_is_no_word_to_frr_is_refused) {
  start();
  for (const char* name : {"v1 v2", "v1\nno bfd", "v|1", "v?"}) {
    bfd::session_config odd = session(1);
    odd.key.interface.assign(name);
    engine().add(odd);
    ASSERT_TRUE(run_until([&] { return !status(1).problem.empty(); }));
    EXPECT_EQ(status(1).problem, "FRR's shell takes no interface of this name");
    engine().remove(odd.key);
  }
  settle();
  EXPECT_EQ(bfdd().count("peer "), 0U);
}

}  // namespace
}  // namespace ot::testing
