// Tracks as people read them on a terminal.
#include "tools/trackctl/overview.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/tools/zone.h"

namespace ot::trackctl {
namespace {

using namespace std::chrono_literals;
using json = nlohmann::ordered_json;

const moment now = from_epoch(milliseconds{1'700'003'600'500});

json track_named(const char* name, const char* state) {
  return {{"name", name},
          {"type", "interface"},
          {"state", state},
          {"changes", 3},
          {"last_change", "2023-11-14T22:13:20.000+00:00"},
          {"delay_up", 0},
          {"delay_down", 0},
          {"pending", nullptr},
          {"object", nullptr},
          {"members", json::array()},
          {"limits", nullptr},
          {"tracked_by", json::array()}};
}

const terminal plain{.present = true, .colours = false, .width = 60};

TEST(overview, is_in_the_order_of_names_with_a_line_each) {
  json unknown = track_named("b", "unknown");
  unknown["last_change"] = nullptr;
  json running = track_named("uplink", "down");
  running["pending"] = {{"state", "up"}, {"seconds", 4}};
  EXPECT_EQ(overview_text({{running, "interface eth0"},
                           {track_named("a", "up"), "route 192.0.2.0/24"},
                           {unknown, "probe 7"}},
                          plain, now),
            "Track   State    For     Follows\n"
            "a       up       1h00m   route 192.0.2.0/24\n"
            "b       unknown  -       probe 7\n"
            "uplink  down     1h00m   interface eth0 (up in 4s)\n");
}

TEST(overview, breaks_a_line_between_words_only) {
  EXPECT_EQ(
      overview_text({{track_named("site", "up"),
                      "and first-member second-member not-a-member-with-a-very-long-name-at-all"}},
                    {.present = true, .colours = false, .width = 45}, now),
      "Track  State    For     Follows\n"
      "site   up       1h00m   and first-member\n"
      "                        second-member\n"
      "                        not-a-member-with-a-very-long-name-at-all\n");
}

TEST(overview, colours_states_where_there_are_colours) {
  const std::string text = overview_text({{track_named("a", "up"), "x"},
                                          {track_named("b", "down"), "x"},
                                          {track_named("c", "unknown"), "x"}},
                                         {.present = true, .colours = true, .width = 80}, now);
  EXPECT_THAT(text, testing::HasSubstr("a      \033[32mup     \033[0m  "));
  EXPECT_THAT(text, testing::HasSubstr("b      \033[31mdown   \033[0m  "));
  EXPECT_THAT(text, testing::HasSubstr("c      \033[33munknown\033[0m  "));
}

TEST(overview, says_how_to_begin) {
  EXPECT_THAT(overview_text({}, plain, now), testing::HasSubstr("`trackctl set --help`"));
  EXPECT_THAT(details_text({}, plain, now), testing::HasSubstr("`trackctl set --help`"));
}

TEST(overview, detail_has_delays_limits_weights_and_what_runs) {
  const test_zone zone("UTC");
  json track = track_named("capacity", "up");
  track["delay_up"] = 5;
  track["pending"] = {{"state", "down"}, {"seconds", 90}};
  track["limits"] = {{"up", 100}, {"down", 30}};
  track["members"] = {
      {{"name", "fibre"}, {"state", "up"}, {"weight", 70}, {"missing", false}},
      {{"name", "dsl"}, {"state", "down"}, {"weight", 20}, {"missing", true}},
  };
  track["tracked_by"] = {"eth1", "eth2"};
  EXPECT_EQ(details_text({{track, "weight --up 100 --down 30 fibre=70 dsl=20"}}, plain, now),
            "capacity is up since 2023-11-14 22:13:20 (1h00m)\n"
            "  follows    weight --up 100 --down 30 fibre=70 dsl=20\n"
            "  delays     up 5s, down none\n"
            "  running    down in 1m30s\n"
            "  limits     up 100, down 30\n"
            "  members    fibre  up     weight 70\n"
            "             dsl    down   weight 20, not configured\n"
            "  tracked by eth1, eth2\n"
            "  changes    3 since the service started\n");
}

TEST(overview, details_are_in_the_order_of_names) {
  const test_zone zone("UTC");
  json unknown = track_named("a", "unknown");
  unknown["last_change"] = nullptr;
  EXPECT_EQ(details_text({{track_named("b", "up"), "x"}, {unknown, "y"}}, plain, now),
            "a is unknown\n"
            "  follows    y\n"
            "  delays     up none, down none\n"
            "  changes    3 since the service started\n"
            "\n"
            "b is up since 2023-11-14 22:13:20 (1h00m)\n"
            "  follows    x\n"
            "  delays     up none, down none\n"
            "  changes    3 since the service started\n");
}

TEST(overview, detail_has_what_the_object_tells) {
  const test_zone zone("UTC");
  json track = track_named("peer", "down");
  track["object"] = {{"prefix", "192.0.2.0"},
                     {"next_hop", nullptr},
                     {"session", {{"state", "down"}, {"remote_state", "admin-down"}}}};
  track["members"] = {{{"name", "a"}, {"state", "up"}, {"not", true}, {"missing", false}},
                      {{"name", "b"}, {"state", "up"}, {"not", false}, {"missing", false}}};
  const std::string text = details_text({{track, "x"}}, plain, now);
  EXPECT_THAT(text,
              testing::HasSubstr("  object     prefix 192.0.2.0, session (state down, remote\n"
                                 "             state admin-down)\n"));
  EXPECT_THAT(text, testing::HasSubstr("  members    a  up     negated\n             b  up\n"));
}

}  // namespace
}  // namespace ot::trackctl
