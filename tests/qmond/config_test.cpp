// The configuration file: what a good one means, and where a bad one is wrong.
#include "tools/qmond/config.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <tuple>

#include "tests/qmond/problems_of.h"

namespace ot::qmond {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(qmond_config, nothing_is_a_configuration_without_operations) {
  const configuration config = parse_config("");
  EXPECT_THAT(config.problems, IsEmpty());
  EXPECT_THAT(config.operations, IsEmpty());
}

TEST(qmond_config, every_kind_is_read) {
  const configuration config = parse_config(R"(
    [defaults]
    interval = "2s"
    fall = 3
    source = "198.51.100.1"
    [[operation]]
    id = 2147483647
    kind = "icmp"
    target = "192.0.2.1"
    size = 1400
    vrf = "red"
    [[operation]]
    id = 2
    kind = "tcp"
    target = "[2001:db8::1]:443"
    source = "2001:db8::2"
    timeout = "250ms"
    rise = 2
    [[operation]]
    id = 3
    kind = "http"
    target = "https://user@www.example.org/health?x=1"
    status = [200, 204]
    verify = false
    [[operation]]
    id = 4
    kind = "dns"
    target = "192.0.2.53"
    query = "www.example.org"
    type = "AAAA"
    [[operation]]
    id = 5
    kind = "command"
    command = ["/usr/lib/check", "", "-w", "5"]
  )");
  ASSERT_THAT(config.problems, IsEmpty());
  ASSERT_EQ(config.operations.size(), 5U);
  const auto& [icmp, tcp, http, dns, command] =
      std::tie(config.operations[0], config.operations[1], config.operations[2],
               config.operations[3], config.operations[4]);
  operation wanted_icmp;
  wanted_icmp.id = 2147483647;
  wanted_icmp.target = wanted_icmp.host = "192.0.2.1";
  wanted_icmp.interval_ms = 2000;
  wanted_icmp.fall = 3;
  wanted_icmp.source = "198.51.100.1";
  wanted_icmp.device = "red";
  wanted_icmp.size = 1400;
  EXPECT_EQ(icmp, wanted_icmp);
  EXPECT_EQ(tcp.host, "2001:db8::1");
  EXPECT_EQ(tcp.port, 443);
  EXPECT_EQ(tcp.timeout_ms, 250U);
  EXPECT_EQ(tcp.rise, 2U);
  EXPECT_EQ(http.host, "www.example.org");
  EXPECT_EQ(http.port, 443);
  EXPECT_THAT(http.status, ElementsAre(200, 204));
  EXPECT_FALSE(http.verify);
  EXPECT_EQ(dns.port, 53);
  EXPECT_EQ(dns.query, "www.example.org");
  EXPECT_EQ(dns.query_type, 28);
  EXPECT_THAT(command.argv, ElementsAre("/usr/lib/check", "", "-w", "5"));
  EXPECT_EQ(command.source, "") << "a command has none";
}

TEST(qmond_config, a_short_interval_shortens_the_timeout_that_is_not_given) {
  const configuration config = parse_config(
      "[[operation]]\nid = 1\nkind = \"icmp\"\ntarget = \"192.0.2.1\"\ninterval = \"300ms\"");
  ASSERT_EQ(config.operations.size(), 1U);
  EXPECT_EQ(config.operations[0].timeout_ms, 300U);
}

TEST(qmond_config, every_problem_is_reported_with_its_place) {
  EXPECT_THAT(
      problems_of(R"([default]
[[operation]]
id = 1
kind = "icmp"
[[operation]]
id = 1
kind = "tcp"
target = "192.0.2.1"
size = 5
colour = "red"
[[operation]]
kind = "ping"
)"),
      ElementsAre("f:1:2: \"default\" is not known here; there are [defaults] and "
                  "[[operation]]",
                  "f:2:1: the operation has no \"target\"",
                  "f:6:6: id 1 is that of the operation in line 2",
                  "f:8:10: target: needs a port: \"192.0.2.1:80\" or "
                  "\"[2001:db8::1]:80\"",
                  "f:9:1: an operation of kind tcp has no \"size\"",
                  "f:10:1: there is no key \"colour\"", "f:11:1: the operation has no \"id\"",
                  "f:12:8: kind: must be one of icmp, tcp, http, dns, command"));
}

TEST(qmond_config, operations_with_problems_are_left_out) {
  const configuration config = parse_config(
      "[[operation]]\nid = 1\nkind = \"icmp\"\ntarget = \"a b\"\n"
      "[[operation]]\nid = 2\nkind = \"icmp\"\ntarget = \"a.b\"\n");
  ASSERT_EQ(config.operations.size(), 1U);
  EXPECT_EQ(config.operations[0].id, 2U);
  EXPECT_EQ(config.problems.size(), 1U);
}

TEST(qmond_config, an_id_is_what_a_track_can_name) {
  for (const char* id : {"0", "2147483648", "-1", "\"1\""}) {
    EXPECT_THAT(problems_of(std::string("[[operation]]\nid = ") + id +
                            "\nkind = \"icmp\"\ntarget = \"a.b\"\n"),
                ElementsAre("f:2:6: id: must be a number from 1 to 2147483647"));
  }
}

TEST(qmond_config, an_operation_of_no_kind_is_checked_as_far_as_it_can_be) {
  EXPECT_THAT(problems_of(R"([[operation]]
id = 1
kind = "ping"
target = 5
interval = "1s"
timeout = "2s"
rise = 0
size = 1
colour = "red"
interface = "a"
vrf = "b"
[[operation]]
id = 1
target = "192.0.2.1"
)"),
              ElementsAre("f:3:8: kind: must be one of icmp, tcp, http, dns, command",
                          "f:4:10: target: must be a text in quotes",
                          "f:6:11: timeout: must not be longer than the interval",
                          "f:7:8: rise: must be a number from 1 to 100",
                          "f:8:8: size: must be a number from 8 to 65000",
                          "f:9:1: there is no key \"colour\"",
                          "f:11:7: either \"interface\" or \"vrf\", not both",
                          "f:12:1: the operation has no \"kind\"; there are icmp, tcp, http, dns, "
                          "command",
                          "f:13:6: id 1 is that of the operation in line 1"));
}

TEST(qmond_config, one_problem_does_not_hide_another) {
  EXPECT_THAT(problems_of(R"([[operation]]
id = 1
kind = "http"
target = "https://192.0.2.1"
status = [99, 200, "x"]
verify = 1
source = "::1"
interval = "1s"
timeout = "2s"
[[operation]]
id = 2
kind = "command"
command = ["/bin/true", 1, 2]
)"),
              ElementsAre("f:5:10: status: element 1 must be a number from 100 to 599; element 3 "
                          "must be a number from 100 to 599",
                          "f:6:10: verify: must be true or false",
                          "f:7:10: source: is not of the target's address family",
                          "f:9:11: timeout: must not be longer than the interval",
                          "f:13:11: command: element 2 must be a text in quotes; element 3 must be "
                          "a text in quotes"));
}

TEST(qmond_config, no_toml_at_all_is_reported_with_its_place) {
  const configuration config = parse_config("[defaults]\nrise = = 3\n");
  ASSERT_EQ(config.problems.size(), 1U);
  EXPECT_EQ(config.problems[0].line, 2U);
  EXPECT_EQ(config.problems[0].column, 8U);
}

// One line in an otherwise good operation.
struct line_case {
  const char* kind;
  const char* line;
  const char* problem;  // behind "f:LINE:"
};

class qmond_config_line : public testing::TestWithParam<line_case> {};

TEST_P(qmond_config_line, is_refused) {
  const auto& [kind, line, problem] = GetParam();
  const std::string target = std::string_view(kind) == "command" ? "command = [\"/bin/true\"]"
                             : std::string_view(kind) == "http"  ? "target = \"http://a.b\""
                             : std::string_view(kind) == "dns"
                                 ? "target = \"192.0.2.1\"\nquery = \"a.b\""
                                 : "target = \"192.0.2.1\"";
  const std::string text = std::string("[[operation]]\n") + line + "\nid = 1\nkind = \"" + kind +
                           "\"\n" + (std::string_view(line).starts_with("target") ? "" : target);
  EXPECT_THAT(problems_of(text), ElementsAre(std::string("f:2:") + problem));
}

INSTANTIATE_TEST_SUITE_P(
    lines, qmond_config_line,
    testing::Values(
        line_case{"icmp", "interval = 5",
                  "12: interval: must be a text such as \"500ms\", \"2s\" or \"5m\""},
        line_case{"icmp", "interval = \"5\"", "12: interval: needs a unit: ms, s, m or h"},
        line_case{"icmp", "interval = \"99ms\"", "12: interval: must be from 100ms to 86400s"},
        line_case{"icmp", "interval = \"99999999999999s\"",
                  "12: interval: must be a text such as \"500ms\", \"2s\" or \"5m\""},
        line_case{"icmp", "timeout = \"6s\"", "11: timeout: must not be longer than the interval"},
        line_case{"icmp", "rise = 0", "8: rise: must be a number from 1 to 100"},
        line_case{"icmp", "fall = 1.5", "8: fall: must be a number from 1 to 100"},
        line_case{"icmp", "size = 70000", "8: size: must be a number from 8 to 65000"},
        line_case{"icmp", "source = \"eth0\"", "10: source: must be an IPv4 or IPv6 address"},
        line_case{"icmp", "source = \"::1\"", "10: source: is not of the target's address family"},
        line_case{"icmp", "interface = \"an-interface-too-long\"",
                  "13: interface: must be the name of an interface, at most 15 characters"},
        line_case{"icmp", "vrf = \"\"", "7: vrf: must not be empty nor hold a zero byte"},
        line_case{"icmp", "target = \"300.1.1.1\"",
                  "10: target: \"300.1.1.1\" is neither an address nor a host name"},
        line_case{"icmp", "verify = true", "1: an operation of kind icmp has no \"verify\""},
        line_case{"tcp", "target = \"192.0.2.1:0\"",
                  "10: target: the port must be a number from 1 to 65535"},
        line_case{"tcp", "target = \"[::1\"", "10: target: the bracket is not closed"},
        line_case{"tcp", "target = \"[::1]443\"",
                  "10: target: only \":PORT\" may stand behind the bracket"},
        line_case{"http", "target = \"ftp://a.b\"",
                  "10: target: must begin with \"http://\" or \"https://\""},
        line_case{"http", "status = [200, 99]",
                  "10: status: element 2 must be a number from 100 to 599"},
        line_case{"http", "verify = 1", "10: verify: must be true or false"},
        line_case{"dns", "type = \"ANY\"", "8: type: must be A, AAAA, MX, NS, SOA or TXT"},
        line_case{"command", "source = \"192.0.2.1\"",
                  "1: an operation of kind command has no \"source\""}));

TEST(qmond_config, a_command_is_a_list_that_begins_with_an_absolute_path) {
  EXPECT_THAT(
      problems_of("[[operation]]\nid = 1\nkind = \"command\"\ncommand = \"/bin/true\"\n"),
      ElementsAre("f:4:11: command: must be a list of texts: the program and its arguments"));
  EXPECT_THAT(problems_of("[[operation]]\nid = 1\nkind = \"command\"\ncommand = [\"true\"]\n"),
              ElementsAre("f:4:11: command: the program must be an absolute path; there is no "
                          "shell and no PATH"));
}

}  // namespace
}  // namespace ot::qmond
