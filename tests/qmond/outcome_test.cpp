// Rise and fall counts, and what is remembered of the results.
#include "tools/qmond/outcome.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace ot::qmond {
namespace {

using testing::ElementsAre;

// The return codes published after each of the results.
std::vector<std::uint32_t> published(outcome& of, const std::vector<return_code>& results) {
  std::vector<std::uint32_t> codes;
  for (const return_code code : results) {
    of.record(code, 1000, 1);
    codes.push_back(of.words()[word_return_code]);
  }
  return codes;
}

constexpr return_code good = return_code::ok;
constexpr return_code late = return_code::no_answer;
constexpr return_code refused = return_code::refused;

TEST(probe_outcome, without_a_result_there_is_no_code) {
  EXPECT_EQ(outcome(1, 1).words()[word_return_code], 0U);
}

TEST(probe_outcome, counts_of_one_follow_every_result) {
  outcome one(1, 1);
  EXPECT_THAT(published(one, {good, late, refused, good}), ElementsAre(1, 2, 4, 1));
}

TEST(probe_outcome, a_failure_needs_as_many_in_a_row_as_fall_says) {
  outcome one(1, 3);
  EXPECT_THAT(published(one, {good, late, late, good, late, late, late, good}),
              ElementsAre(1, 1, 1, 1, 1, 1, 2, 1));
}

TEST(probe_outcome, a_success_needs_as_many_in_a_row_as_rise_says) {
  outcome one(2, 1);
  EXPECT_THAT(published(one, {late, good, late, good, good}), ElementsAre(2, 2, 2, 2, 1));
}

TEST(probe_outcome, the_counts_hold_for_the_first_code_too) {
  outcome one(2, 3);
  EXPECT_THAT(published(one, {good, late, late, refused}), ElementsAre(0, 0, 0, 4));
}

TEST(probe_outcome, another_failure_is_reported_at_once) {
  outcome one(1, 2);
  EXPECT_THAT(published(one, {late, refused, late}), ElementsAre(0, 4, 2));
}

TEST(probe_outcome, the_round_trip_time_is_that_of_the_last_success) {
  outcome one(1, 1);
  one.record(good, 1499, 1);
  EXPECT_EQ(one.words()[word_response_time], 1U);
  EXPECT_EQ(one.words()[word_response_time_us], 1499U);
  one.record(good, 1500, 1);
  EXPECT_EQ(one.words()[word_response_time], 2U);
  one.record(late, 900000, 1);
  EXPECT_EQ(one.words()[word_response_time], 2U);
}

TEST(probe_outcome, the_time_of_change_is_that_of_the_published_code) {
  outcome one(1, 2);
  one.record(good, 1, 100);
  one.record(late, 1, 101);
  EXPECT_EQ(one.words()[word_changed_at], 100U);
  one.record(late, 1, 102);
  EXPECT_EQ(one.words()[word_changed_at], 102U);
  EXPECT_EQ(one.words()[word_results], 3U);
  EXPECT_EQ(one.words()[word_successes], 1U);
}

TEST(probe_outcome, the_bar_shows_the_last_twenty_results_the_oldest_first) {
  outcome one(1, 1);
  EXPECT_EQ(history_bar(one.words(), true), "");
  one.record(late, 0, 1);
  for (const std::uint64_t us : {1000U, 1001U, 3001U, 10001U, 30001U, 100001U, 300001U, 1000001U}) {
    one.record(good, us, 1);
  }
  EXPECT_EQ(history_bar(one.words(), true), "×▁▂▃▄▅▆▇█");
  EXPECT_EQ(history_bar(one.words(), false), "x12345678");
  for (int i = 0; i < 30; ++i) {
    one.record(i == 10 ? late : good, 2000, 1);
  }
  EXPECT_EQ(history_bar(one.words(), false), "x2222222222222222222");
}

}  // namespace
}  // namespace ot::qmond
