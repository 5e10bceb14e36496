// What is made of the changes that the service has kept.
#include "tools/trackctl/history.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/tools/zone.h"

namespace ot::trackctl {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

const moment start = from_epoch(milliseconds{1'700'000'000'000});

past_change change(std::chrono::milliseconds at, const char* track, const char* from,
                   const char* to, const char* cause = "object") {
  return {0, start + at, track, from, to, cause, std::nullopt};
}

kept_history kept(std::vector<past_change> changes, bool complete = true) {
  fill_lasted(changes);
  return {start, complete, std::move(changes)};
}

std::vector<std::int64_t> lasted(const kept_history& history) {
  std::vector<std::int64_t> result;
  for (const past_change& each : history.changes) {
    result.push_back(each.lasted ? each.lasted->count() : -1);
  }
  return result;
}

TEST(past_changes, tell_how_long_the_state_before_lasted) {
  EXPECT_THAT(lasted(kept({change(0s, "a", "unknown", "up"), change(1s, "b", "unknown", "down"),
                           change(5s, "a", "up", "down"), change(7s, "b", "down", "up")})),
              ElementsAre(-1, -1, 5000, 6000));
}

TEST(past_changes, say_nothing_of_a_time_in_which_the_track_was_not_there) {
  // Deleted while it was down, and made anew.
  EXPECT_THAT(lasted(kept({change(0s, "a", "up", "down"), change(5s, "a", "unknown", "up")})),
              ElementsAre(-1, -1));
}

TEST(past_changes, say_nothing_when_the_clock_was_set_back) {
  EXPECT_THAT(lasted(kept({change(9s, "a", "up", "down"), change(5s, "a", "down", "up")})),
              ElementsAre(-1, -1));
}

struct share {
  std::uint32_t flaps;
  std::chrono::milliseconds up;
  std::chrono::milliseconds of;
  bool operator==(const share&) const = default;
};
void PrintTo(const share& value, std::ostream* out) {
  *out << value.flaps << " flaps, up " << value.up.count() << " of " << value.of.count();
}

share share_of(const kept_history& history, const char* state, moment since = moment::min()) {
  const track_summary summary = summary_of(history, "a", state, since, start + 100s);
  return {summary.flaps, std::chrono::duration_cast<milliseconds>(summary.up),
          std::chrono::duration_cast<milliseconds>(summary.end - summary.begin)};
}

TEST(summary, without_a_change_the_state_has_been_that_of_now) {
  EXPECT_EQ(share_of(kept({}), "up"), (share{0, 100s, 100s}));
  EXPECT_EQ(share_of(kept({change(1s, "b", "up", "down")}), "down"), (share{0, 0s, 100s}));
}

TEST(summary, begins_with_the_history_when_the_state_was_known_then) {
  EXPECT_EQ(share_of(kept({change(10s, "a", "up", "down"), change(30s, "a", "down", "up")}), "up"),
            (share{1, 80s, 100s}));
}

TEST(summary, begins_with_a_new_track) {
  EXPECT_EQ(share_of(kept({change(40s, "a", "unknown", "up"), change(60s, "a", "up", "down"),
                           change(90s, "a", "down", "up")}),
                     "up"),
            (share{1, 30s, 60s}));
}

TEST(summary, begins_with_the_oldest_change_when_others_are_forgotten) {
  EXPECT_EQ(share_of(kept({change(50s, "a", "down", "up")}, false), "up"), (share{0, 50s, 50s}));
}

TEST(summary, of_a_track_that_is_gone_ends_with_its_last_change) {
  EXPECT_EQ(share_of(kept({change(10s, "a", "unknown", "up"), change(30s, "a", "up", "unknown")}),
                     "gone"),
            (share{1, 20s, 20s}));
}

TEST(summary, of_a_track_that_was_always_up_is_all_of_the_time) {
  const track_summary summary =
      summary_of(kept({}), "a", "up", moment::min(), start + std::chrono::microseconds(1'500'900));
  EXPECT_EQ(history_json(kept({}), summary)["summary"]["up_percent"], 100.0);
  EXPECT_EQ(history_json(kept({}), summary)["summary"]["up_ms"], 1500);
}

TEST(summary, begins_no_earlier_than_was_asked_for) {
  const kept_history history = kept({change(10s, "a", "up", "down"), change(30s, "a", "down", "up"),
                                     change(80s, "a", "up", "down")});
  EXPECT_EQ(share_of(history, "down", start + 20s), (share{1, 50s, 80s}));
  EXPECT_EQ(share_of(history, "down", start + 200s), (share{0, 0s, 0s}));
}

TEST(history_view, a_line_a_change) {
  const test_zone zone("UTC");
  EXPECT_EQ(history_text(kept({change(1'500ms, "uplink", "unknown", "up", "configuration"),
                               change(3'750ms, "uplink", "up", "down", "delay")})),
            "The service keeps changes since 2023-11-14 22:13:20.000, when it started.\n"
            "Time                     Track   Change           Cause          State before lasted\n"
            "2023-11-14 22:13:21.500  uplink  unknown -> up    configuration  -\n"
            "2023-11-14 22:13:23.750  uplink  up -> down       delay          2.2s\n");
}

TEST(history_view, says_when_there_is_nothing) {
  const test_zone zone("UTC");
  EXPECT_EQ(history_text(kept({}, false)),
            "The service keeps changes since 2023-11-14 22:13:20.000; the oldest are forgotten.\n"
            "Nothing has changed in this time.\n");
}

TEST(history_view, sums_a_track_up) {
  const test_zone zone("UTC");
  track_summary summary{"uplink", "up", start, start + 2h, 3, milliseconds(7'193'000)};
  EXPECT_EQ(summary_text(summary),
            "uplink is up; it left up 3 times and was up 99.9 % of the 2h00m since "
            "2023-11-14 22:13:20.000.\n");
  summary.flaps = 1;
  EXPECT_THAT(summary_text(summary), testing::HasSubstr("it left up once and"));
  summary.state = "gone";
  EXPECT_THAT(summary_text(summary),
              testing::EndsWith("since 2023-11-14 22:13:20.000, until 2023-11-15 00:13:20.000.\n"));
}

TEST(history_view, json_carries_the_same) {
  const test_zone zone("UTC");
  const kept_history history =
      kept({change(0s, "a", "down", "up"), change(25s, "a", "up", "down")});
  EXPECT_EQ(
      history_json(history, summary_of(history, "a", "down", moment::min(), start + 100s)).dump(),
      R"({"since":"2023-11-14T22:13:20.000+00:00","complete":true,"changes":[)"
      R"({"time":"2023-11-14T22:13:20.000+00:00","track":"a","from":"down","to":"up",)"
      R"("cause":"object","lasted_ms":null},)"
      R"({"time":"2023-11-14T22:13:45.000+00:00","track":"a","from":"up","to":"down",)"
      R"("cause":"object","lasted_ms":25000}],)"
      R"("summary":{"track":"a","state":"down","since":"2023-11-14T22:13:20.000+00:00",)"
      R"("until":"2023-11-14T22:15:00.000+00:00","flaps":1,"up_ms":25000,"up_percent":25.0}})");
  EXPECT_FALSE(history_json(history, std::nullopt).contains("summary"));
}

}  // namespace
}  // namespace ot::trackctl
