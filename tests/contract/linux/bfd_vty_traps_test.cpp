// What FRR's shell lays in the way of a program, and bfdd's comings and goings: one test each.
#include <optional>

#include "tests/contract/linux/bfd_vty_fixture.h"
#include "tests/contract/linux/stopwatch.h"

namespace ot::testing {
namespace {

using namespace std::chrono_literals;
using contract::let_pass;

class bfd_vty_traps : public bfd_vty_fixture {
 protected:
  // Has bfdd answer commands that begin so in its own way.
  void refuse(const std::string& start, std::uint8_t code, const std::string& text) {
    bfdd().react([=](fake_vty& bfdd, const std::string& command) {
      if (!command.starts_with(start)) {
        return false;
      }
      bfdd.answer(code, text);
      return true;
    });
  }
};

// The next command would be done in the node of the peer before, or in that of all.
TEST_F(bfd_vty_traps, after_a_refused_command_nothing_of_its_block_is_sent) {
  start();
  bring_up(1);
  refuse("peer 10.0.0.2", 2, "% Unknown command: peer\n");
  bfdd().forget_commands();
  engine().add(session(2, 200));
  ASSERT_TRUE(run_until([&] { return !status(2).problem.empty(); }));
  settle();
  EXPECT_EQ(status(2).problem, "FRR refuses the session: % Unknown command: peer");
  EXPECT_EQ(bfdd().count("receive-interval"), 0U);
  EXPECT_EQ(bfdd().peers().at(key(1)).receive, 50U);
  EXPECT_GE(bfdd().count("end"), 1U);
}

TEST_F(bfd_vty_traps, a_failure_with_the_code_of_success_is_one) {
  start();
  refuse("peer 10.0.0.1", 0, "% Failed to edit configuration.\n\nnothing\n");
  engine().add(session(1));
  ASSERT_TRUE(run_until([&] { return !status(1).problem.empty(); }));
  EXPECT_EQ(status(1).problem, "FRR refuses the session: % Failed to edit configuration.");
}

TEST_F(bfd_vty_traps, a_hint_with_the_code_of_success_is_none) {
  start();
  bfdd().react([](fake_vty& bfdd, const std::string& command) {
    if (command != "no shutdown") {
      return false;
    }
    bfdd.obey(command);
    bfdd.answer(0, "This is only a hint\n");
    return true;
  });
  engine().add(session(1));
  wait_peers(1);
  settle();
  EXPECT_TRUE(status(1).problem.empty());
}

// FRR 8.4 takes no multiplier of 1.
TEST_F(bfd_vty_traps, a_session_that_cannot_be_finished_is_not_left_with_other_values) {
  start();
  engine().add(session(1, 50, 1));
  ASSERT_TRUE(run_until([&] { return !status(1).problem.empty(); }));
  ASSERT_TRUE(run_until([&] { return bfdd().peers().empty(); }));
  engine().add(session(1, 50, 3));
  wait_peers(1);
  settle();
  EXPECT_TRUE(status(1).problem.empty());
}

TEST_F(bfd_vty_traps, a_refused_session_is_asked_for_again_ever_more_rarely) {
  start();
  refuse("peer 10.0.0.1", 13, "% Configuration failed.\n");
  engine().add(session(1));
  let_pass(manager(), 4500ms);
  EXPECT_GE(bfdd().count("peer "), 2U);
  EXPECT_LE(bfdd().count("peer "), 3U);
  bfdd().react(nullptr);
  wait_peers(1);
  settle();
  EXPECT_TRUE(status(1).problem.empty());
}

// A peer whose address is changed cannot be deleted any more.
TEST_F(bfd_vty_traps, another_address_means_another_peer) {
  start();
  bring_up(1);
  bfd::session_config moved = session(1);
  moved.source += 0x01000000;  // .255
  engine().add(moved);
  EXPECT_EQ(wait_reported(1), texts{"down 1"});
  ASSERT_TRUE(run_until([&] {
    return bfdd().peers().contains(key(1)) && bfdd().peers().at(key(1)).original == "10.0.0.255";
  }));
  EXPECT_EQ(bfdd().peers().at(key(1)).local, "10.0.0.255");
}

TEST_F(bfd_vty_traps, a_peer_whose_address_somebody_has_changed_can_be_deleted) {
  start();
  bring_up(1);
  bfdd().peers().at(key(1)).local = "10.0.0.7";
  engine().remove(session(1).key);
  wait_peers(0);
}

TEST_F(bfd_vty_traps, a_peer_that_cannot_be_deleted_is_tried_again) {
  start();
  bring_up(1);
  refuse("no peer", 13, "% Configuration failed.\n\nError type: validation\n");
  engine().remove(session(1).key);
  ASSERT_TRUE(run_until([&] { return bfdd().count("no peer") == 2; }));
  bfdd().react(nullptr);
  wait_peers(0);
}

// Such a command has no answer at all.
TEST_F(bfd_vty_traps, a_bfdd_that_does_not_answer_is_given_up_within_five_seconds) {
  start();
  bring_up(1);
  bfdd().stop_reading();
  const stopwatch watch;
  EXPECT_EQ(wait_reported(2), (texts{"down 1", "away: bfdd does not answer"}));
  EXPECT_LT(watch.taken(), 5s);
}

TEST_F(bfd_vty_traps, a_bfdd_that_wakes_is_right_again_at_once) {
  start();
  bring_up(1);
  bfdd().react([](fake_vty&, const std::string&) { return true; });  // without an answer
  ASSERT_EQ(wait_reported(2).size(), 2U);
  let_pass(manager(), 1500ms);
  EXPECT_EQ(bfdd().connections(), 2U);
  bfdd().react(nullptr);
  bfdd().answer(bfdd().obey("enable").code, "");
  EXPECT_EQ(wait_reported(2), (texts{"runs", "up 1"}));
}

TEST_F(bfd_vty_traps, answers_may_come_in_pieces) {
  start();
  bfdd().react([](fake_vty& bfdd, const std::string& command) {
    const vty_answer said = bfdd.obey(command);
    const std::string bytes = said.text + std::string(3, '\0') + static_cast<char>(said.code);
    for (const char byte : bytes) {
      bfdd.say({&byte, 1});
    }
    return true;
  });
  bring_up(1);
}

TEST_F(bfd_vty_traps, messages_that_the_log_has_lost_are_made_up_for_by_the_list) {
  start();
  bring_up(1);
  bfdd().set_state_silently(key(1), "down");
  const stopwatch watch;
  bfdd().log("something else", 3);
  EXPECT_EQ(wait_reported(1), texts{"down 1"});
  EXPECT_LT(watch.taken(), 400ms);
}

TEST_F(bfd_vty_traps, the_end_of_the_log_is_made_up_for_by_the_list) {
  start();
  bring_up(1);
  bfdd().set_state_silently(key(1), "down");
  bfdd().end_log();
  EXPECT_EQ(wait_reported(1), texts{"down 1"});
  bfdd().set_state_silently(key(1), "up");
  EXPECT_EQ(wait_reported(1), texts{"up 1"});
  EXPECT_TRUE(run_until([&] { return bfdd().followed(); }));
}

TEST_F(bfd_vty_traps, a_bfdd_without_a_live_log_is_looked_at_often) {
  refuse("terminal monitor", 2, "% Unknown command: terminal monitor\n");
  start();
  engine().add(session(1));
  wait_peers(1);
  settle();
  bfdd().set_state_silently(key(1), "up");
  const stopwatch watch;
  EXPECT_EQ(wait_reported(1), texts{"up 1"});
  EXPECT_LT(watch.taken(), 500ms);
}

// The list was on its way when the session moved.
TEST_F(bfd_vty_traps, an_old_list_does_not_undo_what_the_log_has_told) {
  start();
  bring_up(1);
  std::optional<vty_answer> list;
  bfdd().react([&](fake_vty& bfdd, const std::string& command) {
    const bool asked = command == "show bfd peers json" && !list;
    list = asked ? bfdd.obey(command) : list;
    return asked;
  });
  ASSERT_TRUE(run_until([&] { return list.has_value(); }));
  bfdd().set_state(key(1), "down", "control-expired");
  EXPECT_EQ(wait_reported(1), texts{"down 1"});
  bfdd().answer(list->code, list->text);
  let_pass(manager(), 300ms);
  EXPECT_EQ(reported(), texts{});
}

TEST_F(bfd_vty_traps, a_bfdd_that_dies_takes_the_sessions_down_and_is_asked_for_all_again) {
  start();
  bring_up(1);
  bfdd().die();
  EXPECT_EQ(wait_reported(2), (texts{"down 1", "away: bfdd has ended the connection"}));
  bfdd().listen();
  EXPECT_EQ(wait_reported(1), texts{"runs"});
  wait_peers(1);
}

TEST_F(bfd_vty_traps, a_bfdd_that_starts_is_noticed_at_once) {
  start_engine();
  let_pass(manager(), 1500ms);
  EXPECT_FALSE(engine().status().running);
  EXPECT_NE(engine().status().reason.view().find("No such file"), std::string_view::npos);
  const stopwatch watch;
  bfdd().listen();
  EXPECT_EQ(wait_reported(1), texts{"runs"});
  EXPECT_LT(watch.taken(), 500ms);
}

TEST_F(bfd_vty_traps, sessions_wait_for_bfdd) {
  start_engine();
  engine().add(session(1));
  engine().add(session(2));
  engine().remove(session(2).key);
  bfdd().listen();
  ASSERT_EQ(wait_reported(1), texts{"runs"});
  wait_peers(1);
  EXPECT_TRUE(bfdd().peers().contains(key(1)));
}

TEST_F(bfd_vty_traps, a_connection_lost_amid_a_block_leaves_the_session_ours) {
  start();
  bfdd().react([](fake_vty& bfdd, const std::string& command) {
    if (!command.starts_with("receive-interval")) {
      return false;
    }
    bfdd.react(nullptr);
    bfdd.hang_up();
    return true;
  });
  engine().add(session(1));
  EXPECT_EQ(wait_reported(2).size(), 2U);
  ASSERT_TRUE(run_until(
      [&] { return bfdd().peers().contains(key(1)) && bfdd().peers().at(key(1)).receive == 50; }));
  EXPECT_FALSE(status(1).of_another);
}

}  // namespace
}  // namespace ot::testing
