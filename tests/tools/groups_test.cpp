// Which processes are taken for what a leader has left: never somebody else's.
#include "tools/children/groups.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <chrono>
#include <csignal>
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
    ASSERT_EQ(spawn({.argv = {"/bin/sh", "-c", script}, .environment = {"MARK=1"}}, &leader_), 0);
    leaders_.push_back(leader_);
    started_ = start_ticks(leader_);
    ASSERT_NE(started_, 0U);
  }

  pid_t leader_ = 0;
  std::uint64_t started_ = 0;

 private:
  std::vector<pid_t> leaders_;
};

TEST_F(process_group, is_left_while_its_leader_is_the_process_that_started_then) {
  start("exec sleep 60");
  EXPECT_TRUE(group_is_left(leader_, started_, "MARK="));
  EXPECT_FALSE(group_is_left(leader_, started_ - 1, "MARK=")) << "its number was given anew";
  EXPECT_FALSE(group_is_left(leader_, 0, "MARK="));
  signal_group(leader_, SIGKILL);
  ASSERT_EQ(waitpid(leader_, nullptr, 0), leader_);
  EXPECT_FALSE(group_is_left(leader_, started_, "MARK="));
}

TEST_F(process_group, of_a_reaped_leader_is_known_by_age_and_environment) {
  start("(sleep 60; :) & exit");  // one that has its environment all the time
  ASSERT_EQ(waitpid(leader_, nullptr, 0), leader_);
  EXPECT_TRUE(group_is_left(leader_, started_, "MARK="));
  EXPECT_FALSE(group_is_left(leader_, started_, "OTHER="));
  EXPECT_FALSE(group_is_left(leader_, started_, "ARK=")) << "the end of another variable's name";
  constexpr std::uint64_t hour_of_ticks = 360'000;
  EXPECT_FALSE(group_is_left(leader_, started_ + hour_of_ticks, "MARK=")) << "it is older";
}

TEST_F(process_group, is_not_left_in_processes_of_others) {
  start("env -i sleep 60 & exit");  // without a trace of us
  const pid_t leader = leader_;
  const std::uint64_t started = started_;
  ASSERT_EQ(waitpid(leader, nullptr, 0), leader);
  start("(sleep 60; :) & exit");
  ASSERT_EQ(waitpid(leader_, nullptr, 0), leader_);
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  bool left = true;  // until it has let go of its environment
  while (left && std::chrono::steady_clock::now() < end) {
    left = group_is_left(leader, started, "MARK=");
  }
  EXPECT_FALSE(left);
  EXPECT_EQ(kill(-leader, 0), 0) << "somebody is in that group";
}

}  // namespace
}  // namespace ot::children
