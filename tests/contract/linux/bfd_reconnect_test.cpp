// The BFD client when its engine goes and comes back, and what earlier runs and others have left in
// the engine.
#include <cstdlib>
#include <filesystem>

#include "tests/contract/linux/bfd_client_fixture.h"
#include "tests/contract/linux/stopwatch.h"

namespace ot::testing {
namespace {

using nlohmann::json;
using namespace std::chrono_literals;
using contract::let_pass;

class bfd_reconnect : public bfd_client_fixture {
 protected:
  // A session in the engine that this run has not asked for.
  void leave(const std::string& label, unsigned number) {
    engine().sessions()[label] = json{{"peer-address", address(number)},
                                      {"local-interface", "v" + std::to_string(number)},
                                      {"state", "up"}};
  }
  // A label as an earlier run of the same instance made them.
  std::string label_of_earlier_run() {
    make(99);
    std::string label = this->label(99);
    char& digit = label[label.find('-', 3) + 1];
    digit = digit == '0' ? '1' : '0';
    return label;
  }
};

TEST_F(bfd_reconnect, an_engine_that_dies_takes_the_sessions_down) {
  start();
  bring_up(1);
  make(2);
  engine().die();
  EXPECT_EQ(wait_reported(1), reported_list{"down 1"});
  wait_engine(false);
  EXPECT_EQ(reported(), reported_list{});
}

TEST_F(bfd_reconnect, a_session_tells_that_its_engine_is_away) {
  start();
  bring_up(1);
  engine().die();
  EXPECT_EQ(wait_reported(1), reported_list{"down 1"});
  ASSERT_EQ(create(2), 0);
  ASSERT_EQ(wait_reported(1), reported_list{"created 2"});
  for (const std::uint8_t number : {std::uint8_t{1}, std::uint8_t{2}}) {
    bfdc_session_status told;
    ASSERT_TRUE(bfdc_session(100U + number, {bfd_family_ipv4, {10, 0, 0, number}}, &told));
    EXPECT_EQ(told.problem.view(), "bfdd does not answer") << int{number};
  }
}

TEST_F(bfd_reconnect, an_engine_that_is_back_is_asked_for_everything_again) {
  start();
  bring_up(1);
  bring_up(2);
  engine().die();
  ASSERT_EQ(wait_reported(2).size(), 2U);
  start();
  ASSERT_TRUE(run_until([&] { return engine().sessions().size() == 2; }));
  engine().set_state(label(2), "up");
  EXPECT_EQ(wait_reported(1), reported_list{"up 2"});
}

TEST_F(bfd_reconnect, a_starting_engine_is_noticed_at_once) {
  let_pass(manager(), 1500ms);  // attempts have become rare by now
  const stopwatch watch;
  start();
  EXPECT_LT(watch.taken(), 500ms);
}

TEST_F(bfd_reconnect, a_directory_made_later_is_noticed_at_once) {
  const std::string root = std::getenv("OT_ROOT");
  std::filesystem::remove_all(root + "/run");
  let_pass(manager(), 1500ms);
  const stopwatch watch;
  std::filesystem::create_directories(root + "/run/frr");
  let_pass(manager(), 20ms);
  start();
  EXPECT_LT(watch.taken(), 500ms);
}

TEST_F(bfd_reconnect, a_directory_made_anew_is_watched_again) {
  start();
  bring_up(1);
  engine().die();
  ASSERT_EQ(wait_reported(1), reported_list{"down 1"});
  const std::string root = std::getenv("OT_ROOT");
  std::filesystem::remove_all(root + "/run/frr");
  let_pass(manager(), 3500ms);  // attempts have become rare by now
  std::filesystem::create_directories(root + "/run/frr");
  let_pass(manager(), 20ms);
  const stopwatch watch;
  start();
  EXPECT_LT(watch.taken(), 500ms);
}

TEST_F(bfd_reconnect, sessions_that_outlive_the_connection_are_kept) {
  start();
  bring_up(1);
  const std::string before = label(1);
  engine().hang_up();
  EXPECT_EQ(wait_reported(2), (reported_list{"down 1", "up 1"}));
  let_pass(manager(), 50ms);
  EXPECT_EQ(label(1), before);
  ASSERT_EQ(remove(1), 0);
  EXPECT_TRUE(run_until([&] { return engine().sessions().empty(); }));
}

TEST_F(bfd_reconnect, what_was_given_up_meanwhile_is_removed) {
  start();
  bring_up(1);
  engine().hang_up();
  ASSERT_EQ(wait_reported(1), reported_list{"down 1"});
  ASSERT_EQ(remove(1), 0);
  EXPECT_TRUE(run_until([&] { return engine().sessions().empty(); }));
}

TEST_F(bfd_reconnect, orphans_of_earlier_runs_are_removed_and_others_left_alone) {
  start();
  const std::string orphan = label_of_earlier_run();
  engine().hang_up();
  wait_engine(false);
  std::string of_other_instance = orphan;
  of_other_instance[3] = orphan[3] == '0' ? '1' : '0';
  leave(orphan, 50);
  leave(of_other_instance, 51);
  leave("uplink", 52);
  wait_engine(true);
  ASSERT_TRUE(run_until([&] { return engine().sessions().count(orphan) == 0; }));
  EXPECT_EQ(engine().sessions().size(), 3U);
  EXPECT_EQ(engine().sessions().count(of_other_instance), 1U);
  EXPECT_EQ(engine().sessions().count("uplink"), 1U);
}

TEST_F(bfd_reconnect, a_session_in_an_orphans_place_is_made_without_a_word_of_refusal) {
  start();
  const std::string orphan = label_of_earlier_run();
  engine().hang_up();
  wait_engine(false);
  leave(orphan, 1);
  ASSERT_EQ(create(1), 0);
  ASSERT_EQ(wait_reported(1), reported_list{"created 1"});
  ASSERT_TRUE(run_until([&] { return !label(1).empty() && label(1) != orphan; }));
  engine().set_state(label(1), "up");
  EXPECT_EQ(wait_reported(1), reported_list{"up 1"});
}

TEST_F(bfd_reconnect, a_session_taken_away_by_somebody_is_asked_for_again) {
  start();
  bring_up(1);
  engine().drop(label(1));
  EXPECT_EQ(wait_reported(1), reported_list{"down 1"});
  ASSERT_TRUE(run_until([&] { return !label(1).empty(); }));
}

}  // namespace
}  // namespace ot::testing
