// Followed events as lines.
#include "tools/trackctl/events.h"

#include <gtest/gtest.h>

#include "tests/tools/zone.h"

namespace ot::trackctl {
namespace {

// A zone with a half hour in it.
class event_line : public ::testing::Test {
 protected:
  test_zone zone_{"TST-05:30"};
  moment when_ = from_epoch(milliseconds{1795258380007});  // 2026-11-21 10:53:00.007 UTC
};

TEST_F(event_line, text_has_local_time_with_milliseconds) {
  EXPECT_EQ(event_text_line({"uplink", 2}, when_), "2026-11-21 16:23:00.007 uplink down");
}

TEST_F(event_line, json_has_time_with_zone_track_and_state) {
  EXPECT_EQ(event_json_line({"uplink", 1}, when_),
            R"({"time":"2026-11-21T16:23:00.007+05:30","track":"uplink","state":"up"})");
}

TEST_F(event_line, json_stays_json_whatever_the_name) {
  EXPECT_EQ(event_json_line({"a\"\xff", 1}, when_),
            "{\"time\":\"2026-11-21T16:23:00.007+05:30\",\"track\":\"a\\\"\xef\xbf\xbd\",\"state\":"
            "\"up\"}");
}

TEST_F(event_line, states_have_words) {
  EXPECT_STREQ(event_state_word(0), "unknown");
  EXPECT_STREQ(event_state_word(1), "up");
  EXPECT_STREQ(event_state_word(2), "down");
  EXPECT_STREQ(event_state_word(77), "unknown");
}

}  // namespace
}  // namespace ot::trackctl
