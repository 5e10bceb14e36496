// Times and durations: what is written, and what may be typed.
#include "tools/trackctl/times.h"

#include <gtest/gtest.h>

#include "tests/tools/refusal.h"
#include "tests/tools/zone.h"

namespace ot::trackctl {
namespace {

using namespace std::chrono_literals;

class times : public ::testing::Test {
 protected:
  test_zone zone_{"TST-05:30"};
  moment when_ = from_epoch(milliseconds{1795258380007});  // 2026-11-21 10:53:00.007 UTC
};

std::uint32_t seconds(const std::string& text) {
  return parse_seconds("--up", text, {.least = 0, .most = 65535});
}

TEST_F(times, are_local_with_milliseconds) {
  EXPECT_EQ(text_time(when_), "2026-11-21 16:23:00.007");
  EXPECT_EQ(json_time(when_), "2026-11-21T16:23:00.007+05:30");
}

TEST_F(times, durations_have_two_units) {
  EXPECT_EQ(duration_text(0ms), "0s");
  EXPECT_EQ(duration_text(999ms), "999ms");
  EXPECT_EQ(duration_text(59'999ms), "59.9s");
  EXPECT_EQ(duration_text(12'040ms), "12s");
  EXPECT_EQ(duration_text(60s), "1m00s");
  EXPECT_EQ(duration_text(3599s), "59m59s");
  EXPECT_EQ(duration_text(3h + 12min + 59s), "3h12m");
  EXPECT_EQ(duration_text(52h), "2d04h");
  EXPECT_EQ(duration_text(-5s), "0s");
}

TEST_F(times, seconds_may_have_units) {
  EXPECT_EQ(seconds("5"), 5U);
  EXPECT_EQ(seconds("5s"), 5U);
  EXPECT_EQ(seconds("2m"), 120U);
  EXPECT_EQ(seconds("1h30m"), 5400U);
  EXPECT_EQ(seconds("1m5"), 65U);
  EXPECT_EQ(seconds("0"), 0U);
  EXPECT_EQ(seconds("65535"), 65535U);
}

TEST_F(times, what_is_no_duration_is_refused_with_what_would_be_right) {
  for (const char* text : {"", "x", "5x", "-1", "s", "5 s", "1.5s", "5s2m", "5s5s", "65536", "1d",
                           "99999999999", "5m "}) {
    EXPECT_EQ(
        refusal([text] { seconds(text); }),
        "--up \"" + std::string(text) +
            "\" is not a whole number of seconds from 0 to 65535, such as 5, 5s, 2m or 1h30m");
  }
}

TEST_F(times, a_time_can_be_said_in_many_ways) {
  const auto since = [this](const std::string& text) {
    return parse_since("--since", text, when_);
  };
  EXPECT_EQ(since("1h"), when_ - 1h);
  EXPECT_LT(since("4000000000d"), when_ - 24h * 36500 + 24h);
  EXPECT_EQ(since(text_time(when_)), when_);
  EXPECT_EQ(since(json_time(when_)), when_);
  EXPECT_EQ(since("2026-11-21T10:53:00.007Z"), when_);
  EXPECT_EQ(since("2026-11-21T08:53:00.007-02:00"), when_);
  EXPECT_EQ(since("2026-11-21 16:23"), when_ - 7ms);
  EXPECT_EQ(since("2026-11-21"), when_ - 7ms - 16h - 23min);
}

TEST_F(times, what_is_no_time_is_refused) {
  for (const char* text : {"", "yesterday", "2026-02-30", "2026-11-21T", "2026-11-21 16:23x",
                           "2026-11-21T16:23:00+5", "12:30", "1969-12-31", "9999-01-01"}) {
    EXPECT_NE(refusal([&] { parse_since("--since", text, when_); }), "") << text;
  }
}

}  // namespace
}  // namespace ot::trackctl
