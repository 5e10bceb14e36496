// The live table as lines for screens of several sizes.
#include "tools/trackctl/live_table.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/tools/zone.h"

namespace ot::trackctl {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::Eq;
using testing::Optional;

const moment start = from_epoch(milliseconds{1'700'000'000'000});

past_change change(std::chrono::seconds at, const char* from, const char* to,
                   const char* track = "t") {
  return {0, start + at, track, from, to, "object", std::nullopt};
}

std::vector<std::optional<double>> shares(const std::vector<past_change>& changes,
                                          const char* state = "up", bool complete = true) {
  return up_shares({start, complete, changes}, {"t", state, std::nullopt}, start, start + 40s, 4);
}

const auto nothing = Eq(std::nullopt);

TEST(up_shares, without_a_change_are_those_of_the_present_state) {
  EXPECT_THAT(shares({}), ElementsAre(Optional(1), Optional(1), Optional(1), Optional(1)));
  EXPECT_THAT(shares({}, "down"), ElementsAre(Optional(0), Optional(0), Optional(0), Optional(0)));
  EXPECT_THAT(shares({}, "unknown"), ElementsAre(nothing, nothing, nothing, nothing));
  EXPECT_THAT(shares({}, "up", false), ElementsAre(nothing, nothing, nothing, nothing));
}

TEST(up_shares, begin_with_a_new_track_that_has_not_changed) {
  EXPECT_THAT(up_shares({start, true, {}}, {"t", "down", start + 20s}, start, start + 40s, 4),
              ElementsAre(nothing, nothing, Optional(0), Optional(0)));
}

TEST(up_shares, are_divided_where_a_state_changed) {
  EXPECT_THAT(shares({change(15s, "up", "down"), change(30s, "down", "up"),
                      change(5s, "up", "down", "other")}),
              ElementsAre(Optional(1), Optional(0.5), Optional(0), Optional(1)));
}

TEST(up_shares, say_nothing_of_a_time_before_the_track_or_before_what_is_kept) {
  EXPECT_THAT(shares({change(20s, "unknown", "up")}),
              ElementsAre(nothing, nothing, Optional(1), Optional(1)));
  EXPECT_THAT(shares({change(20s, "up", "down")}, "down", false),
              ElementsAre(nothing, nothing, Optional(0), Optional(0)));
}

std::vector<std::string> texts(const std::vector<live_line>& lines) {
  std::vector<std::string> result;
  for (const live_line& line : lines) {
    std::string text;
    for (const live_span& span : line) {
      text += span.text;
    }
    text.erase(text.find_last_not_of(' ') + 1);
    result.push_back(text);
  }
  return result;
}

const kept_history history{start + 1h - 10min,
                           true,
                           {change(3600s - 120s, "up", "down"), change(3600s - 60s, "down", "up")}};
const std::vector<live_track> tracks{
    {"a", "down", std::nullopt}, {"t", "up", start + 1h - 60s}, {"z", "unknown", std::nullopt}};

TEST(live_table, fits_the_screen) {
  const test_zone zone("UTC");
  EXPECT_THAT(texts(live_lines(tracks, history, start + 1h,
                               {.width = 44, .height = 7, .first = 0, .blocks = true})),
              ElementsAre("3 tracks: 1 up, 1 down, 1 unknown   2023-11-",
                          "Track  State       For  Flaps  Last hour",
                          "a      down          -      0            ▁▁▁",
                          "t      up        1m00s      1            ██▆",
                          "z      unknown       -      0", "", "q quit"));
}

TEST(live_table, shows_a_part_of_the_tracks_where_it_is_too_small) {
  const auto lines = texts(live_lines(tracks, history, start + 1h,
                                      {.width = 80, .height = 5, .first = 1, .blocks = false}));
  ASSERT_EQ(lines.size(), 5U);
  EXPECT_THAT(lines[2], testing::StartsWith("t  "));
  EXPECT_EQ(lines[4], "q quit   2-3 of 3, arrows and page keys scroll");
}

TEST(live_table, counts_the_flaps_of_the_last_hour) {
  const kept_history older{start,
                           true,
                           {change(10s, "up", "down"), change(20s, "down", "up"),
                            change(30s, "up", "down"), change(40s, "down", "up")}};
  const auto line = [&](moment now) {
    return texts(live_lines({tracks[1]}, older, now,
                            {.width = 31, .height = 4, .first = 0, .blocks = false}))[2];
  };
  EXPECT_EQ(line(start + 1h), "t      up        1m00s      2");
  EXPECT_EQ(line(start + 1h + 20s), "t      up        1m20s      1");
}

TEST(live_table, is_drawn_on_any_screen) {
  for (const std::size_t width : {0U, 1U, 5U, 26U, 27U, 28U, 300U}) {
    for (const std::size_t height : {0U, 1U, 2U, 3U, 4U, 100U}) {
      const auto lines =
          live_lines(tracks, history, start + 1h,
                     {.width = width, .height = height, .first = 0, .blocks = false});
      EXPECT_EQ(lines.size(), height);
      for (const std::string& line : texts(lines)) {
        EXPECT_LE(line.size(), width);
      }
    }
  }
}

TEST(live_table, shows_names_as_plain_characters) {
  const auto lines = texts(live_lines({{"a\033[2Jb\xff", "up", std::nullopt}}, {}, start,
                                      {.width = 80, .height = 24, .first = 0, .blocks = true}));
  EXPECT_THAT(lines[2], testing::StartsWith("a?[2Jb?  up "));
}

}  // namespace
}  // namespace ot::trackctl
