// The policies' files: what good ones mean, where bad ones are wrong, and which are not believed.
#include "tools/trackpolicy/config.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <utility>

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

TEST(policy_config, holds_damping_and_lines_for_vtysh_are_read) {
  const configuration config = parse_policies("f", R"(
    [defaults]
    hold = "2s"
    half_life = "30s"
    [[policy]]
    name = "prefer"
    track = "uplink"
    kind = "frr"
    run_as_root = true
    up = ["configure terminal", " no route-map away 10"]
    down = ["show version"]
    [[policy]]
    name = "elsewhere"
    track = "uplink"
    kind = "frr"
    user = "nobody"
    vtysh = ["/opt/vtysh", "-N", "a"]
    unknown = ["x"]
    hold = "0s"
    suppress = 3000
    reuse = 1000)");
  EXPECT_THAT(config.problems, IsEmpty());
  ASSERT_EQ(config.policies.size(), 2U);
  const policy& prefer = config.policies[0];
  EXPECT_EQ(prefer.hold_ms, 2000U);
  EXPECT_EQ(prefer.half_life_ms, 30'000U);
  EXPECT_EQ(prefer.suppress, 2000U);
  EXPECT_EQ(prefer.reuse, 750U);
  EXPECT_THAT(prefer.lines[1], ElementsAre("configure terminal", " no route-map away 10"));
  EXPECT_THAT(prefer.vtysh, ElementsAre("/usr/bin/vtysh"));
  EXPECT_THAT(config.policies[1].vtysh, ElementsAre("/opt/vtysh", "-N", "a"));
  EXPECT_EQ(config.policies[1].hold_ms, 0U);
  EXPECT_EQ(config.policies[1].suppress, 3000U);
}

std::vector<std::string> problems_of(const std::string& keys) {
  return parse_policies("f", "[[policy]]\nname = \"p\"\ntrack = \"t\"\n" + keys).problems;
}

TEST(policy_config, limits_of_penalties_that_make_no_sense_are_told) {
  const std::string file = "kind = \"file\"\npath = \"/run/f\"\n";
  EXPECT_THAT(problems_of(file + "suppress = 3000"),
              ElementsAre("f:6:12: suppress: counts with \"half_life\" only, which the policy does "
                          "not have"));
  EXPECT_THAT(problems_of(file + "half_life = \"5s\"\nreuse = 2000"),
              ElementsAre("f:7:9: reuse: must be less than \"suppress\", 2000"));
  EXPECT_THAT(problems_of(file + "half_life = \"5s\"\nreuse = 100\nsuppress = 1601"),
              ElementsAre("f:8:12: suppress: must be at most 16 times \"reuse\", as far as a "
                          "penalty grows"));
  EXPECT_THAT(problems_of(file + "half_life = \"5s\"\nreuse = 100\nsuppress = 1600"), IsEmpty());
}

TEST(policy_config, lines_for_vtysh_that_are_none_are_told) {
  const std::string frr = "kind = \"frr\"\nrun_as_root = true\n";
  EXPECT_THAT(problems_of(frr), ElementsAre("f:1:1: the policy has no lines for vtysh: \"up\", "
                                            "\"down\" or \"unknown\""));
  for (const char* const bad :
       {"\"write\"", "[]", "[1]", "[\"\"]", "[\" \"]", "[\"a\\nb\"]", "[\"a\\u0000b\"]"}) {
    EXPECT_THAT(problems_of(frr + "up = " + bad), ElementsAre(HasSubstr(" of vtysh, "))) << bad;
  }
  EXPECT_THAT(problems_of("kind = \"frr\"\nup = [\"x\"]"),
              ElementsAre(HasSubstr("does not say who its command runs as")));
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
      ElementsAre("f:2:8: name: must be 1 to 31 of A-Z a-z 0-9 _ . : -",
                  "f:5:8: path: must be the absolute path of a file",
                  "f:10:1: a policy of kind command has no \"path\"",
                  "f:11:7: run: must be a list of texts: the program and its arguments",
                  "f:15:8: kind: must be one of command, file, route, link, frr",
                  "f:16:2: \"other\" is not known here; there are [defaults] and [[policy]]"));
  EXPECT_THAT(config.policies, IsEmpty());
}

TEST(policy_config, a_track_may_have_a_name_that_a_policy_may_not) {
  const auto read = [](const std::string& name, const std::string& track) {
    return parse_policies("f", "[[policy]]\nname=\"" + name + "\"\ntrack=\"" + track +
                                   "\"\nkind=\"link\"\ninterface=\"eth0\"");
  };
  EXPECT_EQ(read("a", ".t").policies.at(0).track, ".t");
  EXPECT_THAT(read(".a", "t").problems, ElementsAre("f:2:6: name: must not begin with a dot"));
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

std::vector<std::string> route_problems(const std::string& keys) {
  return parse_policies("f", "[[policy]]\nname=\"a\"\ntrack=\"t\"\nkind=\"route\"\n" + keys)
      .problems;
}

TEST(policy_config, routes_are_read) {
  const configuration config = parse_policies("f", R"(
    [[policy]]
    name = "one"
    track = "t"
    kind = "route"
    to = "192.0.2.0/24"
    via = "198.51.100.1"
    dev = "wan0"
    metric = 4294967295
    table = 100
    source = "203.0.113.1"
    onlink = true
    mtu = 1400
    [[policy]]
    name = "two"
    track = "t"
    kind = "route"
    to = "default"
    via = "fe80::1"
    dev = "wan0"
    vrf = "blue")");
  EXPECT_THAT(config.problems, IsEmpty());
  ASSERT_EQ(config.policies.size(), 2U);
  EXPECT_EQ(
      text_of(config.policies[0].kept_route),
      "192.0.2.0/24 via 198.51.100.1 dev wan0 src 203.0.113.1 metric 4294967295 table 100 mtu "
      "1400 onlink");
  EXPECT_EQ(text_of(config.policies[1].kept_route), "default via fe80::1 dev wan0 vrf blue");
}

TEST(policy_config, a_route_that_cannot_be_is_refused) {
  const std::vector<std::pair<std::string, std::string>> wrong{
      {"to=\"192.0.2.1/24\"\ndev=\"a\"",
       "f:5:4: to: has bits behind its length; \"192.0.2.0/24\" is the network"},
      {"to=\"192.0.2.0/33\"\ndev=\"a\"",
       R"(f:5:4: to: must be "default" or a prefix such as "192.0.2.0/24" or "2001:db8::/32")"},
      {"to=\"192.0.2.0/\"\ndev=\"a\"",
       R"(f:5:4: to: must be "default" or a prefix such as "192.0.2.0/24" or "2001:db8::/32")"},
      {"to=\"::/0\"\nvia=\"192.0.2.1\"", "f:6:5: via: must be of the same family as \"to\""},
      {"to=\"default\"\nsource=\"::1\"\ndev=\"a\"",
       "f:6:8: source: must be of the same family as \"to\""},
      {"to=\"default\"", "f:1:1: the route leads nowhere: \"via\", \"dev\" or both"},
      {"to=\"default\"\nvia=\"fe80::1\"", "f:6:5: via: a link-local gateway needs \"dev\""},
      {"to=\"default\"\ndev=\"a\"\nonlink=true", "f:7:8: onlink: needs \"via\" and \"dev\""},
      {"to=\"default\"\ndev=\"a\"\nvrf=\"v\"\ntable=9",
       "f:7:5: either \"table\" or \"vrf\", not both"},
      {"to=\"::/0\"\ndev=\"a\"\nmtu=1000", "f:7:5: mtu: IPv6 needs 1280 at least"},
      {"to=\"default\"\ndev=\"a\"\ntable=255",
       "f:7:7: table: is the kernel's own table of local addresses"},
      {"to=\"default\"\ndev=\"sixteen-letters-\"",
       "f:6:5: dev: must be the name of an interface, of at most 15 characters"},
      {"dev=\"a\"", "f:1:1: the policy has no \"to\""},
  };
  for (const auto& [keys, problem] : wrong) {
    EXPECT_THAT(route_problems(keys), ElementsAre(problem)) << keys;
  }
}

TEST(policy_config, a_link_is_an_interface_other_than_the_loopback) {
  const std::string head = "[[policy]]\nname=\"a\"\ntrack=\"t\"\nkind=\"link\"\n";
  EXPECT_THAT(parse_policies("f", head + "interface=\"eth0.5\"").problems, IsEmpty());
  EXPECT_THAT(parse_policies("f", head + "interface=\"lo\"").problems,
              ElementsAre(HasSubstr("f:5:11: interface: is the loopback interface")));
  EXPECT_THAT(parse_policies("f", head).problems,
              ElementsAre("f:1:1: the policy has no \"interface\""));
}

TEST(policy_config, a_text_that_is_nested_too_deep_is_refused) {
  std::string deep = "a";
  for (int i = 0; i < 100000; ++i) {
    deep += ".a";
  }
  EXPECT_THAT(parse_policies("f", deep + " = 1").problems,
              ElementsAre("f:1:16: a key has more than 8 parts"));
}

TEST(policy_config, letters_that_are_not_ascii_are_what_they_are) {
  EXPECT_THAT(parse_policies("f", "\n\xef\xba\xbf = 1").problems,
              ElementsAre(HasSubstr("f:2:1: ")));
  EXPECT_THAT(parse_policies("f", "\xc3\xa9 = 1").problems, ElementsAre(HasSubstr("f:1:1: ")));
  EXPECT_THAT(parse_policies("f", "\xef\xbb\xbf# \xc3\xa9\n").problems, IsEmpty());
  const configuration config =
      parse_policies("f",
                     "[[policy]]\nname='a'\ntrack='t'\nkind='command'\nrun_as_root=true\n"
                     "run=[\"/\xc3\xa9\", '\xe2\x82\xac', \"\"\"x\\\n  \xc3\xa9\"\"\"]");
  ASSERT_THAT(config.problems, IsEmpty());
  EXPECT_THAT(config.policies[0].run, ElementsAre("/\xc3\xa9", "\xe2\x82\xac", "x\xc3\xa9"));
}

TEST(policy_config, a_header_that_does_not_begin_with_a_key_is_refused) {
  for (const char* const text : {"[# x\n]", "[[#policy]]", "[=]", "[[\n"}) {
    EXPECT_THAT(parse_policies("f", text).problems,
                ElementsAre(HasSubstr("expected bare key starting character")))
        << text;
  }
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
    return "[[policy]]\nname = \"" + name + "\"\ntrack = \"t\"\nkind = \"file\"\npath = \"/run/" +
           name + "\"\n";
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
  const std::string policy =
      "[[policy]]\nname = \"a\"\ntrack = \"t\"\nkind = \"link\"\ninterface = ";
  write("10.toml", policy + "\"eth0\"");
  write("20.toml", policy + "\"eth1\"");
  EXPECT_EQ(only_problem(),
            path_ + "/20.toml:2:8: name \"a\" is that of the policy in " + path_ + "/10.toml:1");
}

TEST_F(policy_folder, a_file_is_of_one_policy) {
  write("10.toml", file_policy("a"));
  for (const char* const like : {"/run/a", "/run/a.new"}) {
    write("20.toml", "[[policy]]\nname = \"b\"\ntrack = \"t\"\nkind = \"file\"\npath = \"" +
                         std::string(like) + '"');
    EXPECT_EQ(only_problem(), path_ + "/20.toml:5:8: path: the policy in " + path_ +
                                  "/10.toml:1 writes to " + like + " as well");
  }
  write("10.toml", file_policy("a.new"));
  write("20.toml", file_policy("a"));
  EXPECT_THAT(only_problem(), HasSubstr("/10.toml:1 writes to /run/a.new as well"));
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
