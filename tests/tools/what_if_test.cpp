// What-if as trackctl sees it: what is asked, and what is printed.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tools/json.h"
#include "tools/trackctl/what_if/question.h"
#include "tools/trackctl/what_if/report.h"

namespace ot::trackctl {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

// With its exit status before it.
template <typename Check>
std::string refusal_of(Check check) {
  try {
    check();
    return "";
  } catch (const failure& reason) {
    return std::to_string(reason.status) + ' ' + reason.what();
  }
}

track_items interface_items(const std::string& name) {
  return {{"a", u32_value(1)},
          {"type/interface/0x1/a", u32_value(1)},
          {"type/interface/0x1/info/interface", text_value(name)}};
}

track_items list_of(const std::vector<std::string>& members) {
  track_items items{
      {"a", u32_value(1)}, {"delay_up", u32_value(5)}, {"type/list/0x3/a", u32_value(1)}};
  for (const std::string& member : members) {
    items.emplace("type/list/0x3/object/" + member + "/a", u32_value(0));
  }
  return items;
}

const configured_tracks site{{"uplink", interface_items("eth0")},
                             {"other", interface_items("eth0")},
                             {"backup", interface_items("eth1")},
                             {"bare", {{"a", u32_value(1)}}},
                             {"site", list_of({"backup", "uplink"})}};

std::vector<std::string> paths_of(const std::vector<what_if::stored_item>& items) {
  std::vector<std::string> paths;
  for (const what_if::stored_item& item : items) {
    paths.push_back(item.path.substr(tracks_root.size()));
  }
  return paths;
}

// --- What is asked -------------------------------------------------------------------------------

TEST(what_if_question, reads_names_and_states) {
  const auto read = read_assumptions({"uplink=down", "a.b=up"});
  ASSERT_EQ(read.size(), 2U);
  EXPECT_EQ(read[0].track, "uplink");
  EXPECT_EQ(read[0].state, track_state::down);
  EXPECT_EQ(read[1].state, track_state::up);
}

TEST(what_if_question, refuses_what_is_no_assumption) {
  for (const char* word : {"uplink", "uplink=", "uplink=unknown", "=up", "uplink=UP"}) {
    EXPECT_THAT(refusal_of([&] { read_assumptions({word}); }),
                HasSubstr("is not NAME=up or NAME=down"));
  }
  EXPECT_THAT(refusal_of([] { read_assumptions({"a=up", "a=down"}); }), HasSubstr("named twice"));
}

TEST(what_if_question, refuses_tracks_that_nothing_can_happen_to) {
  EXPECT_THAT(refusal_of([] {
                check_assumptions({{"nobody", track_state::up}}, site);
              }),
              StartsWith("1 there is no track \"nobody\""));
  EXPECT_THAT(refusal_of([] {
                check_assumptions({{"bare", track_state::up}}, site);
              }),
              HasSubstr("follows nothing yet"));
}

TEST(what_if_question, refuses_an_object_that_is_up_and_down) {
  EXPECT_THAT(
      refusal_of([] {
        check_assumptions({{"uplink", track_state::up}, {"other", track_state::down}}, site);
      }),
      StartsWith("2 tracks \"uplink\" and \"other\" both follow interface eth0"));
  check_assumptions({{"uplink", track_state::up}, {"other", track_state::up}}, site);
  check_assumptions({{"uplink", track_state::up}, {"backup", track_state::down}}, site);
}

TEST(what_if_question, gives_members_from_the_oldest_to_the_newest) {
  const std::map<std::string, member_places, std::less<>> places{
      {"site", {{"uplink", 0}, {"backup", 1}}}};
  EXPECT_THAT(
      paths_of(items_of({{"site", site.at("site")}}, places)),
      ElementsAre("site/a", "site/delay_up", "site/type/list/0x3/a",
                  "site/type/list/0x3/object/backup/a", "site/type/list/0x3/object/uplink/a"));
  const std::map<std::string, member_places, std::less<>> other_way{
      {"site", {{"uplink", 1}, {"backup", 0}}}};
  EXPECT_EQ(paths_of(items_of({{"site", site.at("site")}}, other_way)).back(),
            "site/type/list/0x3/object/backup/a");
}

TEST(what_if_question, lets_a_list_stand_alone_and_keeps_its_delays) {
  configured_tracks tracks = site;
  let_stand_alone({{"site", track_state::down}, {"uplink", track_state::up}}, tracks);
  EXPECT_EQ(tracks.at("uplink"), site.at("uplink"));
  EXPECT_THAT(paths_of(items_of({{"site", tracks.at("site")}}, {})),
              ElementsAre("site/a", "site/delay_up", "site/type/interface/0x1/a",
                          "site/type/interface/0x1/info/interface"));
}

TEST(what_if_question, knows_of_which_new_objects_nothing_is_known) {
  configured_tracks after = site;
  after["uplink"] = interface_items("eth7");
  after["same"] = interface_items("eth1");
  after["new"] = interface_items("eth8");
  const auto unknown = find_unknown_objects(site, after, {{"new", track_state::up}});
  ASSERT_EQ(unknown.size(), 1U);
  EXPECT_EQ(unknown[0].track, "uplink");
  EXPECT_EQ(unknown[0].object, "interface eth7");
}

// --- What is printed -----------------------------------------------------------------------------

TEST(what_if_report, says_what_changes_and_when) {
  what_if_report report;
  report.found.changes = {{0, "uplink", "up", "down", false},
                          {60, "a", "up", "down", false},
                          {1140, "backup", "down", "up", true},
                          {5040, "site", "up", "down", false}};
  EXPECT_EQ(what_if_text(report),
            "uplink  up -> down  at once\n"
            "a       up -> down  at once\n"
            "backup  down -> up  after 1.1 s, and anyway: its delay runs\n"
            "site    up -> down  after 5 s\n");
}

TEST(what_if_report, says_that_nothing_changes) {
  EXPECT_EQ(what_if_text({}), "no track would change\n");
}

TEST(what_if_report, says_what_is_not_known_and_what_cannot_be) {
  what_if_report report;
  report.assumptions = {{"wide", track_state::up}};
  report.found.unmet = {"wide"};
  report.unknown = {{"dc2", "interface eth7"}};
  EXPECT_EQ(what_if_text(report),
            "no track would change\n"
            "note: wide does not come up: another track's route or session is in its way\n"
            "note: nothing is known of interface eth7, which dc2 follows; it counts as not up "
            "(assume what it is with dc2=up)\n");
}

TEST(what_if_report, says_what_comes_and_goes) {
  what_if_report report;
  report.assumptions = {{"peer", track_state::down}};
  report.found.changes = {{0, "old", "up", "gone", false},
                          {0, "a-new-one", "new", "unknown", false},
                          {99, "early", "up", "down", true},
                          {100, "late", "up", "down", false}};
  report.found.unmet = {"peer", "other"};
  EXPECT_EQ(what_if_text(report),
            "old        up -> gone      at once\n"
            "a-new-one  new -> unknown  at once\n"
            "early      up -> down      at once, and anyway: its delay runs\n"
            "late       up -> down      after 0.1 s\n"
            "note: peer does not come down: another track's route or session is in its way\n"
            "note: other does not come there: another track's route or session is in its way\n");
}

TEST(what_if_report, makes_one_change_of_a_birth_and_what_follows_at_once) {
  what_if::answer found;
  found.changes = {{0, "l", "new", "unknown", false},
                   {0, "m", "new", "unknown", false},
                   {20, "l", "unknown", "up", false},
                   {5020, "m", "unknown", "up", false}};
  join_births(found);
  ASSERT_EQ(found.changes.size(), 3U);
  EXPECT_EQ(found.changes[0].to, "up");
  EXPECT_EQ(found.changes[1].to, "unknown");
  EXPECT_EQ(found.changes[2].after_ms, 5020U);
}

TEST(what_if_report, is_json_with_the_same_content) {
  what_if_report report;
  report.assumptions = {{"uplink", track_state::down}};
  report.found.changes = {{5040, "site", "up", "down", true}};
  report.found.unmet = {"uplink"};
  report.unknown = {{"dc2", "interface eth7"}};
  EXPECT_EQ(what_if_json(report).dump(),
            R"({"assumed":[{"track":"uplink","state":"down"}],)"
            R"("changes":[{"track":"site","from":"up","to":"down","after_ms":5040,"anyway":true}],)"
            R"("unmet":["uplink"],"not_known":[{"track":"dc2","object":"interface eth7"}]})");
}

}  // namespace
}  // namespace ot::trackctl
