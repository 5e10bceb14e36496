// Explanations as they are read: whole texts, of every kind of track and every reason.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/tools/zone.h"
#include "tools/json.h"
#include "tools/trackctl/explain/findings.h"
#include "tools/trackctl/explain/text.h"
#include "tools/trackctl/explain/tree.h"

namespace ot::trackctl::explain {
namespace {

constexpr std::int64_t now_ms = 1'700'000'010'250;

track_facts made(track_type type, track_state state) {
  track_facts track;
  track.type = type;
  track.state = track.source = state;
  track.since = 1'700'000'000;
  return track;
}

track_facts follower(track_type type, track_state state, const std::string& object,
                     const findings& found) {
  track_facts track = made(type, state);
  track.object = object;
  track.findings = found;
  return track;
}

track_facts list(track_type type, track_state state, const std::vector<member>& members) {
  track_facts track = made(type, state);
  track.members = members;
  track.limit_down = 30;
  track.limit_up = 60;
  return track;
}

std::string explained(const site& tracks, const std::string& name) {
  const test_zone zone("UTC");
  return text_of(make_tree(tracks, name, now_ms));
}

constexpr track_state up = track_state::up;
constexpr track_state down = track_state::down;

// Two interfaces, which the lists below are made of.
site ends(track_state a, track_state b) {
  return {{"a", follower(track_type::interface, a, "interface eth0", {"finding"})},
          {"b", follower(track_type::interface, b, "interface eth1", {"finding"})}};
}

std::string of_list(site tracks, track_facts top) {
  tracks["top"] = std::move(top);
  return explained(tracks, "top");
}

// The text of such a member below its list.
std::string below(const std::string& name, const char* state, const std::string& brings,
                  const char* object) {
  return "  - " + name + " is " + state + " since 2023-11-14 22:13:20; it " + brings +
         "\n      interface " + object + "\n        finding\n";
}

const std::string head_down = "top is down since 2023-11-14 22:13:20\n";
const std::string head_up = "top is up since 2023-11-14 22:13:20\n";
const std::string nothing_can =
    "nothing that its members follow can bring it up: some are missing, or in each other's way\n";

TEST(explanation, of_what_is_followed) {
  const nlohmann::ordered_json session{{"state", "down"},
                                       {"remote_state", "admin-down"},
                                       {"diagnostic", "control detection time expired"},
                                       {"remote_diagnostic", "administratively down"},
                                       {"problem", nullptr},
                                       {"followed_by", "newer"}};
  rtclient_result direct;
  direct.route_found = true;
  direct.prefix_length = 8;
  const struct {
    track_facts track;
    const char* text;
  } cases[] = {
      {follower(track_type::interface, down, "interface eth0", interface_findings("eth0", nullptr)),
       "t is down since 2023-11-14 22:13:20\n  interface eth0\n    there is no interface eth0\n"},
      {follower(track_type::route, up, "route 10.0.0.0/8",
                route_findings({.address = 0x0000000a,
                                .length = 8,
                                .vrf = "default",
                                .vrf_exists = true,
                                .match = direct})),
       "t is up since 2023-11-14 22:13:20\n  route 10.0.0.0/8\n    it is in the table\n"},
      {follower(track_type::probe, down, "probe 7",
                operation_findings({.operation = 7,
                                    .service_runs = true,
                                    .code = 2,
                                    .code_text = "No answer",
                                    .what = "icmp 192.0.2.1"})),
       "t is down since 2023-11-14 22:13:20\n  probe 7\n    its result: No answer (return code 2)\n"
       "    the operation: icmp 192.0.2.1\n"},
      {follower(
           track_type::probe, down, "probe 7",
           operation_findings(
               {.operation = 7, .service_runs = true, .code = 0, .code_text = "", .what = ""})),
       "t is down since 2023-11-14 22:13:20\n  probe 7\n    it has no result yet\n"},
      {follower(track_type::bfd, down, "bfd 192.0.2.1 --interface eth0",
                session_findings("t", session, "the BFD engine: bfdd runs the sessions")),
       "t is down since 2023-11-14 22:13:20\n  bfd 192.0.2.1 --interface eth0\n"
       "    the session is down; the peer says admin-down\n"
       "    our diagnostic: control detection time expired\n"
       "    the peer's diagnostic: administratively down\n"
       "    only track newer follows this session, the newest on it\n"
       "    the BFD engine: bfdd runs the sessions\n"},
  };
  for (const auto& [track, text] : cases) {
    EXPECT_EQ(explained({{"t", track}}, "t"), text);
  }
}

TEST(explanation, of_a_session_that_its_own_track_follows) {
  EXPECT_EQ(session_findings("t",
                             {{"state", "up"},
                              {"remote_state", "up"},
                              {"diagnostic", "no diagnostic"},
                              {"remote_diagnostic", "none"},
                              {"followed_by", "t"}},
                             ""),
            findings{"the session is up; the peer says up"});
}

TEST(explanation, of_lists_of_every_kind_that_are_up) {
  EXPECT_EQ(of_list(ends(up, down), list(track_type::boolean_and, up, {{"a", 0}, {"b", 1}})),
            head_up + "  \"and\" list, up when all of its members count as up: 2 of 2 do\n" +
                below("a", "up", "counts as up", "eth0") +
                below("not b", "down", "counts as up", "eth1"));
  EXPECT_EQ(of_list(ends(up, down), list(track_type::boolean_or, up, {{"a", 0}, {"b", 0}})),
            head_up + "  \"or\" list, up when one of its members counts as up: 1 of 2 do\n" +
                below("a", "up", "counts as up", "eth0") +
                below("b", "down", "counts as down", "eth1"));
  EXPECT_EQ(of_list(ends(up, down), list(track_type::threshold_weight, up, {{"a", 40}, {"b", 9}})),
            head_up +
                "  weight list, up from 30 to 60: the weights of its members that are up, 1 of 2, "
                "make 40\n" +
                below("a", "up", "adds 40", "eth0") + below("b", "down", "adds 0 of 9", "eth1"));
  EXPECT_EQ(
      of_list(ends(up, down), list(track_type::threshold_percentage, up, {{"a", 1}, {"b", 1}})),
      head_up + "  percentage list, up from 30 to 60 %: 1 of 2 of its members are up, 50 %\n" +
          below("a", "up", "counts", "eth0") + below("b", "down", "does not count", "eth1"));
}

TEST(explanation, of_a_threshold_list_with_too_much) {
  EXPECT_EQ(of_list(ends(up, up), list(track_type::threshold_weight, down, {{"a", 40}, {"b", 30}})),
            head_down +
                "  weight list, up from 30 to 60: the weights of its members that are up, 2 of 2, "
                "make 70\n" +
                below("a", "up", "adds 40", "eth0") + below("b", "up", "adds 30", "eth1") +
                "to bring it up: a down\n");
  EXPECT_EQ(
      of_list(ends(up, up), list(track_type::threshold_percentage, down, {{"a", 1}, {"b", 1}})),
      head_down + "  percentage list, up from 30 to 60 %: 2 of 2 of its members are up, 100 %\n" +
          below("a", "up", "counts", "eth0") + below("b", "up", "counts", "eth1") +
          "to bring it up: a down\n");
}

TEST(explanation, of_a_threshold_list_at_its_limits) {
  for (const std::uint32_t weight : {0U, 30U}) {
    EXPECT_EQ(
        of_list(ends(up, up), list(track_type::threshold_weight, up, {{"a", 30}, {"b", weight}})),
        head_up +
            "  weight list, up from 30 to 60: the weights of its members that are up, 2 of 2, "
            "make " +
            std::to_string(30 + weight) + "\n" + below("a", "up", "adds 30", "eth0") +
            below("b", "up", "adds " + std::to_string(weight), "eth1"));
  }
}

TEST(explanation, of_lists_without_members) {
  const std::pair<track_type, const char*> kinds[] = {
      {track_type::boolean_and, "and"},
      {track_type::boolean_or, "or"},
      {track_type::threshold_weight, "weight"},
      {track_type::threshold_percentage, "percentage"}};
  for (const auto& [type, word] : kinds) {
    std::string text = head_down + "  ";
    text.append(word).append(" list without members, which is down\n").append(nothing_can);
    EXPECT_EQ(of_list({}, list(type, down, {})), text);
  }
}

TEST(explanation, of_missing_members) {
  EXPECT_EQ(of_list({}, list(track_type::boolean_and, down, {{"gone", 0}, {"lost", 1}})),
            head_down +
                "  \"and\" list, up when all of its members count as up: 1 of 2 do\n"
                "  - gone: there is no such track; it counts as down\n"
                "  - not lost: there is no such track; it counts as up\n" +
                nothing_can);
  EXPECT_EQ(of_list({}, list(track_type::threshold_weight, down, {{"gone", 40}})),
            head_down +
                "  weight list, up from 30 to 60: the weights of its members that are up, "
                "0 of 1, make 0\n"
                "  - gone: there is no such track; it adds 0 of 40\n" +
                nothing_can);
  EXPECT_EQ(of_list({}, list(track_type::threshold_percentage, down, {{"gone", 1}})),
            head_down +
                "  percentage list, up from 30 to 60 %: 0 of 1 of its members are up, 0 %\n"
                "  - gone: there is no such track; it does not count\n" +
                nothing_can);
}

TEST(explanation, of_what_brings_a_list_up) {
  track_facts both = list(track_type::boolean_and, down, {{"a", 0}, {"b", 1}});
  const std::string members =
      below("a", "down", "counts as down", "eth0") + below("not b", "up", "counts as down", "eth1");
  const std::string rule = "  \"and\" list, up when all of its members count as up: 0 of 2 do\n";
  EXPECT_EQ(of_list(ends(down, up), both),
            head_down + rule + members + "to bring it up: a up, b down\n");
  both.delay_up = 5;
  EXPECT_EQ(
      of_list(ends(down, up), both),
      head_down + rule + members + "to bring it up: a up, b down; its delay of 5 s follows\n");
}

TEST(explanation, of_a_list_whose_delay_runs) {
  track_facts any = list(track_type::boolean_or, down, {{"a", 0}});
  any.source = up;
  any.delay = {up, 4000};
  any.delay_up = 5;
  const std::string members = below("a", "up", "counts as up", "eth0");
  const std::string rule = "  \"or\" list, up when one of its members counts as up: 1 of 1 do\n";
  EXPECT_EQ(of_list(ends(up, down), any),
            head_down +
                "  it will be up at 2023-11-14 22:13:34, when its delay is over, in 4.0 s\n" +
                rule + members);
}

TEST(explanation, of_a_list_that_is_not_computed_yet) {
  const std::string members = below("a", "up", "counts as up", "eth0");
  const std::string text =
      head_down +
      "  \"or\" list, up when one of its members counts as up: 1 of 1 do\n"
      "  its members make it up now; lists that contain each other are not computed and "
      "keep their states, and others follow when a member's state is published\n" +
      members + "to bring it up: nothing more is needed\n";
  track_facts any = list(track_type::boolean_or, down, {{"a", 0}});
  EXPECT_EQ(of_list(ends(up, down), any), text);
  any.source = up;  // computed, and about to be published
  EXPECT_EQ(of_list(ends(up, down), any), text);
}

TEST(explanation, of_a_track_that_stands_in_two_places) {
  site tracks = ends(up, down);
  tracks["inner"] = list(track_type::boolean_or, up, {{"a", 0}});
  EXPECT_EQ(of_list(tracks, list(track_type::boolean_and, up, {{"a", 0}, {"inner", 0}})),
            head_up + "  \"and\" list, up when all of its members count as up: 2 of 2 do\n" +
                below("a", "up", "counts as up", "eth0") +
                "  - inner is up since 2023-11-14 22:13:20; it counts as up\n"
                "      \"or\" list, up when one of its members counts as up: 1 of 1 do\n"
                "      - a is up; it counts as up; see above\n");
}

TEST(explanation, ends_where_lists_are_too_deep) {
  site tracks{{"l0", follower(track_type::interface, up, "interface eth0", {"finding"})}};
  for (int number = 1; number <= 17; ++number) {
    tracks["l" + std::to_string(number)] =
        list(track_type::boolean_and, up, {{"l" + std::to_string(number - 1), 0}});
  }
  const std::string text = explained(tracks, "l17");
  const std::string last =
      "- l1 is up; it counts as up; `trackctl explain l1` goes on from there\n";
  ASSERT_GT(text.size(), last.size());
  EXPECT_EQ(text.substr(text.size() - last.size()), last);
}

}  // namespace
}  // namespace ot::trackctl::explain
