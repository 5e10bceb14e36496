// Which processes are taken for what a leader has left: never somebody else's.
#include "tools/children/groups.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <string>
#include <vector>

#include "tools/children/spawn.h"

namespace ot::children {
namespace {

class process_group : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(prctl(PR_SET_CHILD_SUBREAPER, 1), 0); }
  void TearDown() override {
    for (const pid_t each : leaders_) {
      signal_group(each, SIGKILL);
      while (waitpid(-each, nullptr, 0) > 0) {
      }
    }
    prctl(PR_SET_CHILD_SUBREAPER, 0);
  }
  void start(const char* script) {
    ASSERT_EQ(
        spawn({.argv = {"/bin/sh", "-c", script}, .environment = {"MARK=1"}}, &leader_.number), 0);
    leaders_.push_back(leader_.number);
    std::ifstream stream("/proc/" + std::to_string(leader_.number) + "/stat");
    std::string line;
    std::getline(stream, line);
    ASSERT_EQ(identity_in(line).number, leader_.number);
    leader_ = identity_in(line);
  }
  process_identity started_at(std::int64_t distance) const {
    return {.number = leader_.number,
            .started_ticks = leader_.started_ticks + static_cast<std::uint64_t>(distance)};
  }

  process_identity leader_;

 private:
  std::vector<pid_t> leaders_;
};

TEST_F(process_group, is_left_while_its_leader_is_the_process_that_started_then) {
  start("exec sleep 60");
  EXPECT_TRUE(group_is_left(leader_, "MARK="));
  EXPECT_FALSE(group_is_left(started_at(-1), "MARK=")) << "its number was given anew";
  EXPECT_FALSE(group_is_left({}, "MARK="));
  signal_group(leader_.number, SIGKILL);
  ASSERT_EQ(waitpid(leader_.number, nullptr, 0), leader_.number);
  EXPECT_FALSE(group_is_left(leader_, "MARK="));
}

TEST_F(process_group, of_a_reaped_leader_is_known_by_age_and_environment) {
  start("(sleep 60; :) & exit");  // one that has its environment all the time
  ASSERT_EQ(waitpid(leader_.number, nullptr, 0), leader_.number);
  EXPECT_TRUE(group_is_left(leader_, "MARK="));
  EXPECT_FALSE(group_is_left(leader_, "OTHER="));
  EXPECT_FALSE(group_is_left(leader_, "ARK=")) << "the end of another variable's name";
  constexpr std::int64_t hour_of_ticks = 360'000;
  EXPECT_FALSE(group_is_left(started_at(hour_of_ticks), "MARK=")) << "it is older";
}

TEST_F(process_group, is_not_left_in_processes_of_others) {
  start("env -i sleep 60 & exit");  // without a trace of us
  const process_identity leader = leader_;
  ASSERT_EQ(waitpid(leader.number, nullptr, 0), leader.number);
  start("(sleep 60; :) & exit");
  ASSERT_EQ(waitpid(leader_.number, nullptr, 0), leader_.number);
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  bool left = true;  // until it has let go of its environment
  while (left && std::chrono::steady_clock::now() < end) {
    left = group_is_left(leader, "MARK=");
  }
  EXPECT_FALSE(left);
  EXPECT_EQ(kill(-leader.number, 0), 0) << "somebody is in that group";
}

TEST(process_identity, is_in_a_line_whatever_its_program_is_called) {
  const std::string rest = " S 1 77 77 0 -1 0 0 0 0 0 0 0 0 0 20 0 1 0 4711 2 3";
  for (const char* const name : {"sh", "a) S 1 2 (b", "", "\n 5 (x)"}) {
    const process_identity found = identity_in("77 (" + std::string(name) + ')' + rest);
    EXPECT_EQ(found.number, 77) << name;
    EXPECT_EQ(found.started_ticks, 4711U) << name;
  }
}

TEST(process_identity, is_not_in_what_is_no_such_line) {
  for (const char* const text : {"", "77", "77 (sh) S 1 77", "x (sh) S 1 2 3",
                                 "77 (sh) S 1 77 77 0 -1 0 0 0 0 0 0 0 0 0 20 0 1 0",
                                 "1 (init) S 0 1 1 0 -1 0 0 0 0 0 0 0 0 0 20 0 1 0 4711",
                                 "-77 (sh) S 1 77 77 0 -1 0 0 0 0 0 0 0 0 0 20 0 1 0 4711"}) {
    EXPECT_EQ(identity_in(text).number, 0) << text;
  }
}

}  // namespace
}  // namespace ot::children
