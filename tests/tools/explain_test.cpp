// Explanations: what is found of every kind of object, what lists make of their members, the fewest
// changes, and the words for all of it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <linux/if.h>

#include <algorithm>
#include <bit>
#include <random>
#include <utility>

#include "platform/interface_manager.h"
#include "platform/ipv4.h"
#include "tests/support/seeds.h"
#include "tools/json.h"
#include "tools/trackctl/explain/findings.h"
#include "tools/trackctl/explain/remedy.h"
#include "tools/trackctl/explain/rules.h"
#include "tools/trackctl/explain/text.h"
#include "tools/trackctl/explain/tree.h"

namespace ot::trackctl::explain {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Optional;
using testing::Pair;

constexpr std::int64_t now_ms = 1'700'000'010'250;

track_facts follower(const std::string& object, track_state state,
                     const std::string& finding = "it is up and has a carrier") {
  track_facts track;
  track.type = track_type::interface;
  track.state = state;
  track.source = state;
  track.since = 1'700'000'000;
  track.object = object;
  track.findings = {finding};
  return track;
}
track_facts up(const std::string& object = "interface eth0") {
  return follower(object, track_state::up);
}
track_facts down(const std::string& object = "interface eth1") {
  return follower(object, track_state::down, "it is up, but has no carrier");
}

track_facts list(track_type type, const std::vector<member>& members,
                 track_state state = track_state::down) {
  track_facts track;
  track.type = type;
  track.state = state;
  track.source = state;
  track.since = 1'700'000'000;
  track.members = members;
  return track;
}
track_facts threshold(track_type type, std::uint32_t limit_down, std::uint32_t limit_up,
                      const std::vector<member>& members, track_state state = track_state::down) {
  track_facts track = list(type, members, state);
  track.limit_down = limit_down;
  track.limit_up = limit_up;
  return track;
}

std::string explained(const site& tracks, const std::string& name) {
  setenv("TZ", "UTC", 1);
  tzset();
  // Times as they are in the tree, but for their date.
  return text_of(make_tree(tracks, name, now_ms),
                 [](const std::string& time) { return time.substr(11, 8); });
}

// --- Objects -------------------------------------------------------------------------------------

link_record link(std::uint32_t state, std::uint8_t operstate, std::uint32_t redundancy = 1) {
  link_record made;
  made.state = state;
  made.operstate = operstate;
  made.redundancy = redundancy;
  return made;
}

TEST(explain_findings, of_every_state_of_an_interface) {
  EXPECT_THAT(interface_findings("eth0", nullptr), ElementsAre("there is no interface eth0"));
  const std::pair<link_record, const char*> cases[] = {
      {link(ifm_state_admin_down, IF_OPER_DOWN),
       "it is administratively down; `ip link set eth0 up` changes that"},
      {link(ifm_state_up, IF_OPER_UP), "it is up and has a carrier"},
      {link(ifm_state_up, IF_OPER_UP, 0),
       "it has a carrier, but is the standby member of its bond"},
      {link(ifm_state_down, IF_OPER_NOTPRESENT), "it is up, but its hardware is not there"},
      {link(ifm_state_down, IF_OPER_DOWN), "it is up, but has no carrier"},
      {link(ifm_state_down, IF_OPER_LOWERLAYERDOWN),
       "it is up, but has no carrier: the interface below it, or the far end, is down"},
      {link(ifm_state_down, IF_OPER_TESTING), "it is being tested"},
      {link(ifm_state_down, IF_OPER_DORMANT),
       "it has a carrier, but waits to be let in (802.1X or such)"},
      {link(ifm_state_down, IF_OPER_UNKNOWN), "it is up, but its line protocol is not"}};
  for (const auto& [record, text] : cases) {
    EXPECT_THAT(interface_findings("eth0", &record), ElementsAre(text));
  }
}

route_look route(std::uint32_t length, bool found, std::uint32_t match_length) {
  route_look look{
      .address = 0x0000000a, .length = length, .vrf = "red", .vrf_exists = true, .match = {}};
  look.match.route_found = found;
  look.match.prefix_length = match_length;
  look.match.first_hop.assign("eth3");
  return look;
}

TEST(explain_findings, of_every_state_of_a_route) {
  EXPECT_THAT(route_findings(route(8, true, 8)), ElementsAre("it is in the table, by eth3"));
  EXPECT_THAT(route_findings(route(8, false, 0)),
              ElementsAre("no usable route to it is in the table"));
  EXPECT_THAT(route_findings(route(8, true, 24)),
              ElementsAre("the longest match of 10.0.0.0 is the longer 10.0.0.0/24, by eth3"));
  EXPECT_THAT(route_findings(route(16, true, 0)),
              ElementsAre("it is not in the table; 10.0.0.0 goes by the shorter 0.0.0.0/0, by "
                          "eth3"));
  route_look own = route(32, true, 24);
  own.match.own_address = true;
  EXPECT_THAT(route_findings(own), ElementsAre("it is an address of the router's own, by eth3"));
  route_look without = route(8, false, 0);
  without.vrf_exists = false;
  EXPECT_THAT(route_findings(without), ElementsAre("there is no VRF red"));
}

TEST(explain_findings, of_every_state_of_an_operation) {
  const auto look = [](bool runs, std::optional<std::uint32_t> code, const char* text) {
    return operation_findings(
        {.operation = 7, .service_runs = runs, .code = code, .code_text = text, .what = "icmp x"});
  };
  EXPECT_THAT(look(false, {}, ""),
              ElementsAre("the probe service does not run, so operation 7 has no result"));
  EXPECT_THAT(look(true, {}, ""), ElementsAre("there is no operation 7; "
                                              "/etc/object_tracking/probes.toml defines them"));
  EXPECT_THAT(look(true, 0, ""), ElementsAre("it has no result yet", "the operation: icmp x"));
  EXPECT_THAT(look(true, 2, "timeout"),
              ElementsAre("its result: timeout (return code 2)", "the operation: icmp x"));
}

TEST(explain_findings, of_every_state_of_a_session) {
  EXPECT_THAT(session_findings("peer", nullptr, ""),
              ElementsAre("the service has no session for it"));
  EXPECT_THAT(
      session_findings("peer", {{"problem", "there is no interface eth9"}}, "the engine: x"),
      ElementsAre("it is not run: there is no interface eth9", "the engine: x"));
  EXPECT_THAT(session_findings("peer",
                               {{"state", "down"},
                                {"remote_state", "init"},
                                {"diagnostic", "control detection time expired"},
                                {"remote_diagnostic", "none"},
                                {"problem", nullptr},
                                {"followed_by", "newer"}},
                               ""),
              ElementsAre("the session is down; the peer says init",
                          "our diagnostic: control detection time expired",
                          "only track newer follows this session, the newest on it"));
}

// --- Words ---------------------------------------------------------------------------------------

TEST(explain_text, of_a_track_with_an_object) {
  EXPECT_EQ(explained({{"uplink", down()}}, "uplink"),
            "uplink is down since 22:13:20\n"
            "  interface eth1\n"
            "    it is up, but has no carrier\n");
}

TEST(explain_text, of_a_delay_that_runs) {
  track_facts uplink = up();
  uplink.delay = {track_state::down, 3210};
  EXPECT_EQ(explained({{"uplink", uplink}}, "uplink"),
            "uplink is up since 22:13:20\n"
            "  it will be down at 22:13:33, when its delay is over, in 3.2 s\n"
            "  interface eth0\n"
            "    it is up and has a carrier\n");
}

TEST(explain_text, of_a_track_that_follows_nothing) {
  EXPECT_EQ(explained({{"bare", track_facts{}}}, "bare"),
            "bare is unknown\n"
            "  it follows nothing yet; `trackctl set bare KIND ...` gives it an object\n");
}

TEST(explain_text, of_an_and_list) {
  track_facts site_list = list(track_type::boolean_and,
                               {{"uplink", 0}, {"maintenance", 1}, {"gone", 0}, {"backup", 0}});
  site_list.delay_up = 5;
  const site tracks{{"site", site_list},
                    {"uplink", up()},
                    {"maintenance", up("interface m0")},
                    {"backup", down()}};
  EXPECT_EQ(explained(tracks, "site"),
            "site is down since 22:13:20\n"
            "  \"and\" list, up when all of its members count as up: 1 of 4 do\n"
            "  - uplink is up since 22:13:20; it counts as up\n"
            "      interface eth0\n"
            "        it is up and has a carrier\n"
            "  - not maintenance is up since 22:13:20; it counts as down\n"
            "      interface m0\n"
            "        it is up and has a carrier\n"
            "  - gone: there is no such track; it counts as down\n"
            "  - backup is down since 22:13:20; it counts as down\n"
            "      interface eth1\n"
            "        it is up, but has no carrier\n"
            "nothing that its members follow can bring it up: some are missing, or in each other's "
            "way\n");
}

TEST(explain_text, of_what_brings_a_list_up) {
  track_facts any = list(track_type::boolean_or, {{"both", 0}, {"one", 0}});
  any.delay_up = 5;
  const site tracks{{"any", any},
                    {"both", list(track_type::boolean_and, {{"a", 0}, {"b", 0}})},
                    {"one", list(track_type::boolean_and, {{"a", 0}})},
                    {"a", down()},
                    {"b", down("interface eth2")}};
  const std::string text = explained(tracks, "any");
  EXPECT_THAT(text, HasSubstr("\"or\" list, up when one of its members counts as up: 0 of 2 do\n"));
  EXPECT_THAT(text, HasSubstr("      - a is down; it counts as down; see above\n"));
  EXPECT_THAT(text, testing::EndsWith("to bring it up: a up; its delay of 5 s follows\n"));
}

TEST(explain_text, of_threshold_lists) {
  const site tracks{
      {"capacity",
       threshold(track_type::threshold_weight, 30, 100, {{"a", 70}, {"b", 20}, {"x", 10}})},
      {"most", threshold(track_type::threshold_percentage, 51, 100, {{"a", 1}, {"b", 1}})},
      {"a", down()},
      {"b", up()}};
  EXPECT_EQ(
      explained(tracks, "capacity"),
      "capacity is down since 22:13:20\n"
      "  weight list, up from 30 to 100: the weights of its members that are up, 1 of 3, make "
      "20\n"
      "  - a is down since 22:13:20; it adds 0 of 70\n"
      "      interface eth1\n"
      "        it is up, but has no carrier\n"
      "  - b is up since 22:13:20; it adds 20\n"
      "      interface eth0\n"
      "        it is up and has a carrier\n"
      "  - x: there is no such track; it adds 0 of 10\n"
      "to bring it up: a up\n");
  EXPECT_THAT(explained(tracks, "most"),
              HasSubstr("percentage list, up from 51 to 100 %: 1 of 2 of its members are up, 50 %\n"
                        "  - a is down since 22:13:20; it does not count\n"));
}

TEST(explain_text, of_lists_that_contain_each_other) {
  const site tracks{{"one", list(track_type::boolean_and, {{"two", 0}})},
                    {"two", list(track_type::boolean_and, {{"one", 1}})}};
  EXPECT_EQ(explained(tracks, "one"),
            "one is down since 22:13:20\n"
            "  \"and\" list, up when all of its members count as up: 0 of 1 do\n"
            "  - two is down since 22:13:20; it counts as down\n"
            "      \"and\" list, up when all of its members count as up: 1 of 1 do\n"
            "      its members make it up now; lists that contain each other are not computed and "
            "keep their states, and others follow when a member's state is published\n"
            "      - not one is down; it counts as up; it contains this list, and both keep their "
            "states\n"
            "nothing that its members follow can bring it up: some are missing, or in each other's "
            "way\n");
}

TEST(explain_text, of_a_list_without_members) {
  EXPECT_THAT(explained({{"empty", list(track_type::boolean_or, {})}}, "empty"),
              HasSubstr("  or list without members, which is down\n"));
}

TEST(explain_tree, ends_at_some_depth_and_says_where_it_goes_on) {
  site tracks{{"l0", up()}};
  for (int number = 1; number <= 1500; ++number) {
    tracks["l" + std::to_string(number)] =
        list(track_type::boolean_and, {{"l" + std::to_string(number - 1), 0}}, track_state::up);
  }
  EXPECT_THAT(explained(tracks, "l1500"), HasSubstr("`trackctl explain l1484` goes on from there"));
}

TEST(explain_tree, has_times_with_milliseconds) {
  track_facts uplink = up();
  uplink.delay = {track_state::down, 1000};
  setenv("TZ", "UTC", 1);
  tzset();
  const auto tree = make_tree({{"uplink", uplink}}, "uplink", now_ms);
  EXPECT_EQ(tree["since"], "2023-11-14T22:13:20.000+00:00");
  EXPECT_EQ(tree["delay"]["ends"], "2023-11-14T22:13:31.250+00:00");
  EXPECT_TRUE(tree["remedy"].is_null());
}

// --- The fewest changes --------------------------------------------------------------------------

TEST(explain_remedy, takes_the_largest_weights_where_many_are_needed) {
  std::vector<member> members;
  site tracks;
  for (std::uint32_t number = 0; number < 20; ++number) {
    members.push_back({"m" + std::to_string(number), number});
    tracks[members.back().name] = down("interface e" + std::to_string(number));
  }
  tracks["list"] = threshold(track_type::threshold_weight, 85, 1000, members);
  const auto found = find_remedy(tracks, "list");
  ASSERT_TRUE(found);
  EXPECT_EQ(found->size(), 5U);  // 19 + 18 + 17 + 16 + 15
}

TEST(explain_remedy, takes_two_members_where_one_needs_more_changes) {
  const site tracks{
      {"list", threshold(track_type::threshold_weight, 10, 100, {{"all", 20}, {"d", 5}, {"e", 5}})},
      {"all", list(track_type::boolean_and, {{"a", 0}, {"b", 0}, {"c", 0}})},
      {"a", down("interface e1")},
      {"b", down("interface e2")},
      {"c", down("interface e3")},
      {"d", down("interface e4")},
      {"e", down("interface e5")}};
  EXPECT_THAT(find_remedy(tracks, "list"), Optional(ElementsAre(Pair("d", true), Pair("e", true))));
}

TEST(explain_remedy, brings_members_down_where_there_are_too_many) {
  const site tracks{
      {"list", threshold(track_type::threshold_weight, 10, 20, {{"a", 30}, {"b", 15}})},
      {"a", up("interface e1")},
      {"b", up("interface e2")}};
  EXPECT_THAT(find_remedy(tracks, "list"), Optional(ElementsAre(Pair("a", false))));
}

TEST(explain_remedy, of_a_list_that_comes_up_by_itself_is_empty) {
  EXPECT_THAT(
      find_remedy({{"list", list(track_type::boolean_or, {{"a", 0}})}, {"a", up()}}, "list"),
      Optional(IsEmpty()));
}

TEST(explain_remedy, is_one_object_for_two_tracks_on_it) {
  const site tracks{{"all", list(track_type::boolean_and, {{"a", 0}, {"b", 0}, {"c", 0}})},
                    {"a", down("interface eth1")},
                    {"b", down("interface eth1")},
                    {"c", down("interface eth2")}};
  EXPECT_THAT(find_remedy(tracks, "all"), Optional(ElementsAre(Pair("a", true), Pair("c", true))));
}

TEST(explain_remedy, wants_no_object_up_and_down_at_once) {
  const site tracks{{"both", list(track_type::boolean_and, {{"a", 0}, {"b", 1}})},
                    {"a", down("interface eth1")},
                    {"b", down("interface eth1")}};
  EXPECT_FALSE(find_remedy(tracks, "both"));
}

TEST(explain_remedy, is_found_where_the_nearest_member_is_in_the_way) {
  // "any" comes up by either of its members, and only one of them leaves the other list as it has
  // to be.
  const site tracks{{"both", list(track_type::boolean_and, {{"any", 0}, {"a", 1}})},
                    {"any", list(track_type::boolean_or, {{"a", 0}, {"b", 0}})},
                    {"a", down("interface eth1")},
                    {"b", down("interface eth2")}};
  EXPECT_THAT(find_remedy(tracks, "both"), Optional(ElementsAre(Pair("b", true))));
}

TEST(explain_remedy, takes_a_member_that_two_lists_share) {
  const site tracks{{"all", list(track_type::boolean_and, {{"one", 0}, {"two", 0}})},
                    {"one", list(track_type::boolean_or, {{"a", 0}, {"b", 0}})},
                    {"two", list(track_type::boolean_or, {{"c", 0}, {"b", 0}})},
                    {"a", down("interface eth1")},
                    {"b", down("interface eth2")},
                    {"c", down("interface eth3")}};
  EXPECT_THAT(find_remedy(tracks, "all"), Optional(ElementsAre(Pair("b", true))));
}

TEST(explain_remedy, is_found_among_as_many_members_as_there_can_be) {
  std::vector<member> members;
  site tracks;
  for (std::uint32_t number = 0; number < 1499; ++number) {
    members.push_back({"m" + std::to_string(number), 1});
    tracks[members.back().name] = down("interface e" + std::to_string(number));
  }
  tracks["most"] = threshold(track_type::threshold_percentage, 5, 100, members);
  const auto found = find_remedy(tracks, "most");
  ASSERT_TRUE(found);
  EXPECT_EQ(found->size(), 75U);  // of 1499 are 5 %
}

// Every state that the objects can have, tried out.
class all_states {
 public:
  all_states(const site& tracks, std::vector<std::string> objects)
      : tracks_(tracks), objects_(std::move(objects)) {}

  // The fewest objects that have to change for the list to be up; none when nothing does. `now`:
  // those that are up, a bit each.
  std::optional<int> fewest(const std::string& name, unsigned now) const {
    std::optional<int> best;
    for (unsigned states = 0; states < 1U << objects_.size(); ++states) {
      const int count = std::popcount(states ^ now);
      if ((!best || count < *best) && computed(name, states)) {
        best = count;
      }
    }
    return best;
  }

  bool computed(const std::string& name, unsigned states) const {
    const track_facts* track = find(tracks_, name);
    if (track == nullptr) {
      return false;
    }
    const auto at = std::find(objects_.begin(), objects_.end(), track->object);
    if (at != objects_.end()) {
      return ((states >> (at - objects_.begin())) & 1U) != 0;
    }
    return is_up(*track, count_members(*track, [&](const member& each) {
      return computed(each.name, states) != (is_boolean(track->type) && each.value != 0);
    }));
  }

 private:
  const site& tracks_;
  std::vector<std::string> objects_;
};

TEST(explain_remedy, brings_a_list_up_and_is_the_smallest) {
  const unsigned seed = test::one_seed();
  SCOPED_TRACE(test::shown(seed));
  std::mt19937_64 chance(seed);
  const auto below = [&](std::uint32_t count) {
    return static_cast<std::uint32_t>(chance() % count);
  };
  const std::vector<std::string> objects{"eth0", "eth1", "eth2", "eth3", "eth4"};
  int found_some = 0;
  for (int round = 0; round < 3000; ++round) {
    site tracks;
    std::vector<std::string> names{"missing"};
    const unsigned now = below(1U << objects.size());
    for (int number = 0; number < 6; ++number) {
      const std::uint32_t on = below(static_cast<std::uint32_t>(objects.size()));
      names.push_back("f" + std::to_string(number));
      tracks[names.back()] = ((now >> on) & 1U) != 0 ? up(objects[on]) : down(objects[on]);
    }
    for (int number = 0; number < 4; ++number) {
      const std::uint32_t kind = below(4);
      std::vector<member> members;
      for (std::uint32_t count = 1 + below(4); count > 0; --count) {
        members.push_back(
            {names[below(static_cast<std::uint32_t>(names.size()))], kind < 2    ? below(2)
                                                                     : kind == 2 ? below(50)
                                                                                 : 1});
      }
      constexpr track_type types[] = {track_type::boolean_and, track_type::boolean_or,
                                      track_type::threshold_weight,
                                      track_type::threshold_percentage};
      const std::uint32_t limit = 1 + below(100);
      names.push_back("l" + std::to_string(number));
      track_facts& made = tracks[names.back()];
      made = threshold(types[kind], below(limit), limit, members);
      made.source = made.state = all_states(tracks, objects).computed(names.back(), now)
                                     ? track_state::up
                                     : track_state::down;
    }
    const auto found = find_remedy(tracks, "l3");
    const auto fewest = all_states(tracks, objects).fewest("l3", now);
    ASSERT_EQ(found.has_value(), fewest.has_value()) << round << explained(tracks, "l3");
    if (found) {
      EXPECT_EQ(static_cast<int>(found->size()), *fewest) << explained(tracks, "l3");
      ++found_some;
    }
  }
  EXPECT_GT(found_some, 500);
}

}  // namespace
}  // namespace ot::trackctl::explain
