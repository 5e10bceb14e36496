// Which processes are taken for what a leader has left: never somebody else's.
#include "tools/children/groups.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <csignal>

#include "tools/children/spawn.h"

namespace ot::children {
namespace {

class process_group : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(prctl(PR_SET_CHILD_SUBREAPER, 1), 0); }
  void TearDown() override {
    signal_group(leader_, SIGKILL);
    while (waitpid(-leader_, nullptr, 0) > 0) {
    }
    prctl(PR_SET_CHILD_SUBREAPER, 0);
  }
  void start(const char* script) {
    ASSERT_EQ(spawn({.argv = {"/bin/sh", "-c", script}, .environment = {"MARK=1"}}, &leader_), 0);
    started_ = start_ticks(leader_);
    ASSERT_NE(started_, 0U);
  }

  pid_t leader_ = 0;
  std::uint64_t started_ = 0;
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
  start("sleep 60 & exit");
  ASSERT_EQ(waitpid(leader_, nullptr, 0), leader_);
  EXPECT_TRUE(group_is_left(leader_, started_, "MARK="));
  EXPECT_FALSE(group_is_left(leader_, started_, "OTHER="));
  EXPECT_FALSE(group_is_left(leader_, started_, "ARK=")) << "the end of another variable's name";
  constexpr std::uint64_t hour_of_ticks = 360'000;
  EXPECT_FALSE(group_is_left(leader_, started_ + hour_of_ticks, "MARK=")) << "it is older";
}

}  // namespace
}  // namespace ot::children
