// The policies' files: what good ones mean, where bad ones are wrong, and which are not believed.
#include "tools/trackpolicy/config.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace ot::trackpolicy {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST(policy_config, both_kinds_are_read) {
  const configuration config = parse_policies("f", R"(
    [defaults]
    user = "nobody"
    timeout = "2s"
    [[policy]]
    name = "tell"
    track = "uplink"
    kind = "command"
    run = ["/bin/tell", "", "x y"]
    run_down = ["/bin/down"]
    retry = 3
    every = true
    [[policy]]
    name = "weight"
    track = "uplink"
    kind = "file"
    path = "/run/uplink"
    text_down = -50
    text_up = "0"
    grace = "5s")");
  EXPECT_THAT(config.problems, IsEmpty());
  ASSERT_EQ(config.policies.size(), 2U);
  const policy& tell = config.policies[0];
  EXPECT_THAT(command_for(tell, track_state::up), ElementsAre("/bin/tell", "", "x y"));
  EXPECT_THAT(command_for(tell, track_state::down), ElementsAre("/bin/down"));
  EXPECT_EQ(tell.timeout_ms, 2000U);
  EXPECT_EQ(tell.user, "nobody");
  EXPECT_TRUE(tell.every);
  EXPECT_EQ(config.policies[1].text, (std::array<std::string, 3>{"-50", "0", "-50"}));
  EXPECT_EQ(config.policies[1].grace_ms, 5000U);
}

TEST(policy_config, every_error_is_told_with_its_place) {
  const configuration config = parse_policies("f", R"([[policy]]
name = "a/b"
track = "t"
kind = "file"
path = "relative"
[[policy]]
name = "b"
track = "t"
kind = "command"
path = "/x"
run = "true"
[[policy]]
name = "c"
track = "t"
kind = "rocket"
[other]
)");
  EXPECT_THAT(
      config.problems,
      ElementsAre("f:2:8: name: must be 1 to 31 of A-Z a-z 0-9 _ . : -, and not begin with a dot",
                  "f:5:8: path: must be the absolute path of a file",
                  "f:10:1: a policy of kind command has no \"path\"",
                  "f:11:7: run: must be a list of texts: the program and its arguments",
                  "f:15:8: kind: must be one of command, file",
                  "f:16:2: \"other\" is not known here; there are [defaults] and [[policy]]"));
  EXPECT_THAT(config.policies, IsEmpty());
}

std::vector<std::string> command_problems(const std::string& keys) {
  return parse_policies("f", "[[policy]]\nname=\"a\"\ntrack=\"t\"\nkind=\"command\"\n" + keys)
      .problems;
}

TEST(policy_config, a_command_says_who_it_runs_as) {
  EXPECT_THAT(command_problems("run=[\"/bin/true\"]"),
              ElementsAre("f:1:1: the policy does not say who its command runs as: \"user\", or "
                          "\"run_as_root = true\""));
  EXPECT_THAT(command_problems("run=[\"/bin/true\"]\nuser=\"root\""),
              ElementsAre("f:6:6: user: is root; say \"run_as_root = true\" if that is meant"));
  EXPECT_THAT(command_problems("run=[\"/bin/true\"]\nuser=\"no-such\""),
              ElementsAre("f:6:6: user: there is no user \"no-such\" on this machine"));
  EXPECT_THAT(command_problems("run=[\"/bin/true\"]\nuser=\"nobody\"\nrun_as_root=true"),
              ElementsAre("f:6:6: either \"user\" or \"run_as_root\", not both"));
  EXPECT_THAT(command_problems("run=[\"/bin/true\"]\nrun_as_root=true"), IsEmpty());
  EXPECT_THAT(command_problems("run_as_root=true"),
              ElementsAre("f:1:1: the policy has no command: \"run\", \"run_up\", \"run_down\" or "
                          "\"run_unknown\""));
}

TEST(policy_config, a_text_that_is_nested_too_deep_is_refused) {
  std::string deep = "a";
  for (int i = 0; i < 100000; ++i) {
    deep += ".a";
  }
  EXPECT_THAT(parse_policies("f", deep + " = 1").problems,
              ElementsAre("f:1:16: a key has more than 8 parts"));
}

// A folder of files whose rights the test chooses.
class policy_folder : public testing::Test {
 protected:
  void SetUp() override { ASSERT_NE(mkdtemp(path_.data()), nullptr); }
  void TearDown() override { std::filesystem::remove_all(path_); }

  void write(const std::string& name, const std::string& text) const {
    std::ofstream(path_ + '/' + name) << text;
    ASSERT_EQ(chmod((path_ + '/' + name).c_str(), 0644), 0);
  }

  static std::string file_policy(const std::string& name) {
    return "[[policy]]\nname = \"" + name +
           "\"\ntrack = \"t\"\nkind = \"file\"\npath = \"/run/x\"\n";
  }

  [[nodiscard]] std::string only_problem() const {
    const configuration config = read_policies(path_);
    EXPECT_EQ(config.problems.size(), 1U);
    return config.problems.empty() ? "" : config.problems[0];
  }

  std::string path_ = testing::TempDir() + "policies.XXXXXX";
};

TEST_F(policy_folder, its_files_are_read_by_name_and_others_are_not) {
  write("20.toml", file_policy("second"));
  write("10.toml", file_policy("first"));
  write("note.txt", "no policies");
  write(".10.toml.swp", "no policies");
  const configuration config = read_policies(path_);
  EXPECT_THAT(config.problems, IsEmpty());
  EXPECT_THAT(config.policies, ElementsAre(testing::Field(&policy::name, "first"),
                                           testing::Field(&policy::name, "second")));
}

TEST_F(policy_folder, a_name_is_taken_once_in_all_files) {
  write("10.toml", file_policy("a"));
  write("20.toml", file_policy("a"));
  EXPECT_EQ(only_problem(),
            path_ + "/20.toml:2:8: name \"a\" is that of the policy in " + path_ + "/10.toml:1");
}

TEST_F(policy_folder, what_others_may_have_written_is_refused) {
  write("a.toml", file_policy("a"));
  ASSERT_EQ(chmod((path_ + "/a.toml").c_str(), 0664), 0);
  EXPECT_THAT(only_problem(), HasSubstr(path_ + "/a.toml: "));
  ASSERT_EQ(chmod((path_ + "/a.toml").c_str(), 0644), 0);
  ASSERT_EQ(chmod(path_.c_str(), 0777), 0);
  EXPECT_EQ(only_problem(), path_ + ": others may write to it; only its owner may (chmod go-w)");
}

TEST_F(policy_folder, a_strangers_file_is_refused) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can give a file away";
  }
  write("a.toml", file_policy("a"));
  ASSERT_EQ(chown((path_ + "/a.toml").c_str(), 65534, 65534), 0);
  EXPECT_THAT(only_problem(), HasSubstr("65534"));
}

TEST_F(policy_folder, links_pipes_and_huge_files_are_refused) {
  std::filesystem::create_symlink("/dev/null", path_ + "/a.toml");
  EXPECT_THAT(only_problem(), HasSubstr(path_ + "/a.toml: "));
  std::filesystem::remove(path_ + "/a.toml");
  ASSERT_EQ(mkfifo((path_ + "/a.toml").c_str(), 0600), 0);
  EXPECT_THAT(only_problem(), HasSubstr(path_ + "/a.toml: "));
  std::filesystem::remove(path_ + "/a.toml");
  write("a.toml", "");
  std::filesystem::resize_file(path_ + "/a.toml", 5U << 20U);
  EXPECT_THAT(only_problem(), HasSubstr(path_ + "/a.toml: "));
}

TEST_F(policy_folder, one_that_is_not_there_is_a_problem) {
  EXPECT_THAT(read_policies(path_ + "/none").problems,
              ElementsAre(path_ + "/none: No such file or directory"));
}

}  // namespace
}  // namespace ot::trackpolicy
