// The status view, as the operator reads it.
#include "tools/qmond/status.h"
#include "tools/json.h"

#include <gtest/gtest.h>

#include "tools/qmond/table_writer.h"

namespace ot::qmond {
namespace {

std::vector<operation_status> sample() {
  operation_status good{.result = {}, .about = describe("icmp 192.0.2.1", 1000, 500)};
  good.result[word_op_id] = 7;
  good.result[word_return_code] = 1;
  good.result[word_response_time_us] = 1234;
  good.result[word_results] = 3;
  good.result[word_successes] = 2;
  good.result[word_history] = 0x2f1;
  operation_status fresh{
      .result = {}, .about = describe("http http://www.example.org/a/rather/long/path/to/x", 1, 1)};
  fresh.result[word_op_id] = 4294967295U;
  return {good, fresh};
}

TEST(qmond_status, the_table_lines_up) {
  EXPECT_EQ(status_text(sample(), false),
            "OPERATION   TARGET                                        CODE  TEXT           RTT"
            "      LAST 20\n"
            "7           icmp 192.0.2.1                                1     OK             "
            "1.23 ms  2x1\n"
            "4294967295  http http://www.example.org/a/rather/long...  0     No result yet  -\n");
}

TEST(qmond_status, no_operation_leaves_the_heading) {
  EXPECT_EQ(status_text({}, true), "OPERATION  TARGET  CODE  TEXT  RTT  LAST 20\n");
}

TEST(qmond_status, json_has_everything) {
  const auto parsed = nlohmann::json::parse(status_json(sample()));
  ASSERT_EQ(parsed.size(), 2U);
  EXPECT_EQ(parsed[0]["operation"], 7);
  EXPECT_EQ(parsed[0]["kind"], "icmp");
  EXPECT_EQ(parsed[0]["target"], "192.0.2.1");
  EXPECT_EQ(parsed[0]["text"], "OK");
  EXPECT_EQ(parsed[0]["rtt_ms"], 1.234);
  EXPECT_EQ(parsed[0]["last"], nlohmann::json({true, false, true}));
  EXPECT_EQ(parsed[0]["interval_ms"], 1000);
  EXPECT_TRUE(parsed[1]["rtt_ms"].is_null());
  EXPECT_TRUE(parsed[1]["last"].empty());
  EXPECT_EQ(status_json({}), "[]\n");
}

}  // namespace
}  // namespace ot::qmond
