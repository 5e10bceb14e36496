// The two renderings of `trackctl engine`.
#include "tools/trackctl/engine.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

namespace ot::trackctl {
namespace {

const std::vector<engine_state> states = {
    {"bfd", true, 1'700'000'000, 0},
    {"probe", false, 1'700'000'001, 3},
    {"fib", false, 1'700'000'002, 1},
    {"interfaces", true, 1'700'000'003, 2},
};

TEST(engine_view, a_line_each) {
  setenv("TZ", "UTC", 1);
  tzset();
  EXPECT_EQ(engine_table(states),
            "Service            State          Since                Pending\n"
            "BFD engine         connected      2023-11-14 22:13:20  none\n"
            "probe service      not connected  2023-11-14 22:13:21  3 operations without a result\n"
            "FIB                not connected  2023-11-14 22:13:22  1 route item to be applied\n"
            "interface manager  connected      2023-11-14 22:13:23  2 interfaces that are not "
            "there\n");
}

TEST(engine_view, a_service_of_a_later_version_is_shown_by_its_own_name) {
  setenv("TZ", "UTC", 1);
  tzset();
  EXPECT_EQ(engine_table({{"mpls", true, 0, 7}}),
            "Service            State          Since                Pending\n"
            "mpls               connected      1970-01-01 00:00:00  7 pending\n");
}

TEST(engine_view, a_line_for_the_loop) {
  setenv("TZ", "UTC", 1);
  tzset();
  EXPECT_EQ(loop_text({1'700'000'000, 1'700'000'004, 3214, 0}),
            "Longest turn of the main loop: 3.214 ms, 2023-11-14 22:13:24\n");
  EXPECT_EQ(loop_text({1'700'000'000, 0, 0, 0}), "Longest turn of the main loop: none yet\n");
}

TEST(engine_view, tells_of_lines_of_the_log_that_were_dropped) {
  EXPECT_EQ(loop_text({1'700'000'000, 0, 0, 12}),
            "Longest turn of the main loop: none yet\n"
            "Lines of the log dropped, because nobody read it: 12\n");
}

TEST(engine_view, a_line_for_what_a_service_is_and_one_for_what_it_discarded) {
  std::vector<engine_state> shown = states;
  EXPECT_EQ(details_text(shown), "");
  shown[0].detail = "own engine";
  EXPECT_EQ(details_text(shown), "BFD engine: own engine\n");
  shown[0].discarded = 1;
  EXPECT_EQ(details_text(shown),
            "BFD engine: own engine\n"
            "BFD engine: 1 packet was discarded: malformed, from afar, or of no session\n");
  shown[0].detail.clear();
  shown[0].discarded = std::uint64_t{1} << 32;
  EXPECT_EQ(details_text(shown),
            "BFD engine: 4294967296 packets were discarded: malformed, from afar, or of no "
            "session\n");
}

TEST(engine_view, json_counts_what_was_discarded_where_packets_come) {
  std::vector<engine_state> shown = states;
  shown[0].discarded = 7;
  const nlohmann::ordered_json json = engine_json(shown, {});
  EXPECT_EQ(json.at(0)["discarded_packets"], 7);
  EXPECT_FALSE(json.at(2).contains("discarded_packets"));
}

TEST(engine_view, json_without_a_turn_yet) {
  EXPECT_TRUE(engine_json({}, {1'700'000'000, 0, 0, 0}).at(0)["longest_turn_at"].is_null());
}

TEST(engine_view, json_carries_the_same) {
  setenv("TZ", "UTC", 1);
  tzset();
  EXPECT_EQ(
      engine_json(states, {1'700'000'000, 1'700'000'004, 3214, 5}).dump(),
      R"([{"service":"bfd","connected":true,"since":"2023-11-14T22:13:20.000+00:00","pending":0,)"
      R"("discarded_packets":0},)"
      R"({"service":"probe","connected":false,"since":"2023-11-14T22:13:21.000+00:00","pending":3},)"
      R"({"service":"fib","connected":false,"since":"2023-11-14T22:13:22.000+00:00","pending":1},)"
      R"({"service":"interfaces","connected":true,"since":"2023-11-14T22:13:23.000+00:00",)"
      R"("pending":2},)"
      R"({"service":"loop","connected":true,"since":"2023-11-14T22:13:20.000+00:00","pending":0,)"
      R"("longest_turn_ms":3.214,"longest_turn_at":"2023-11-14T22:13:24.000+00:00","log_dropped":5}])");
}

}  // namespace
}  // namespace ot::trackctl
