// Which states a policy acts upon, and when: those that last, and no flaps. In virtual time.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/seeds.h"
#include "tools/trackpolicy/flap_records.h"
#include "tools/trackpolicy/state_filter.h"

namespace ot::trackpolicy {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr track_state up = track_state::up;
constexpr track_state down = track_state::down;
constexpr track_state unknown = track_state::unknown;

class policy_filter : public testing::Test {
 protected:
  void configure(const policy& of) { filter_.configure(of, now_); }
  void see(track_state state) {
    filter_.see({.state = state, .since = 0, .reason = ""}, now_);
    take();
  }
  void advance(std::uint64_t milliseconds) {
    const std::uint64_t end = now_ + milliseconds * 1000;
    while (filter_.due_us() <= end) {
      now_ = std::max(now_, filter_.due_us());
      take();
    }
    now_ = end;
  }
  void take() {
    while (const auto state = filter_.take(now_)) {
      acted_.emplace_back(word_of(state->state));
    }
  }
  // What was acted upon since the last call.
  std::vector<std::string> acted() { return std::exchange(acted_, {}); }
  [[nodiscard]] filter_report status() const { return filter_.status(now_); }
  // Down and up again.
  void flap() {
    see(down);
    see(up);
  }

  static policy holding(std::uint32_t milliseconds) {
    policy made;
    made.hold_ms = milliseconds;
    return made;
  }
  static policy damped(std::uint32_t half_life_ms = 10'000) {
    policy made;
    made.half_life_ms = half_life_ms;
    made.suppress = 2000;
    made.reuse = 500;
    return made;
  }

  std::uint64_t now_ = 1'000'000;
  state_filter filter_;
  std::vector<std::string> acted_;
};

TEST_F(policy_filter, lets_every_state_through_at_once_when_nothing_is_said) {
  configure({});
  for (const track_state each : {unknown, up, down, up}) {
    see(each);
  }
  EXPECT_THAT(acted(), ElementsAre("unknown", "up", "down", "up"));
  EXPECT_EQ(filter_.due_us(), reaction::never);
  EXPECT_FALSE(status().damped);
}

TEST_F(policy_filter, holds_a_state_until_it_has_lasted) {
  configure(holding(5000));
  see(down);
  EXPECT_THAT(acted(), ElementsAre("down"));  // the first one, at once
  see(up);
  advance(4999);
  EXPECT_THAT(acted(), IsEmpty());
  EXPECT_EQ(status().held, up);
  EXPECT_EQ(status().held_us, 1000U);
  advance(1);
  EXPECT_THAT(acted(), ElementsAre("up"));
  EXPECT_EQ(status().held, std::nullopt);
  EXPECT_EQ(filter_.due_us(), reaction::never);
}

TEST_F(policy_filter, begins_anew_with_each_change_and_forgets_a_state_that_goes_back) {
  configure(holding(5000));
  see(up);
  EXPECT_THAT(acted(), ElementsAre("up"));
  see(down);
  advance(3000);
  see(unknown);
  advance(3000);
  see(down);
  advance(4999);
  EXPECT_THAT(acted(), IsEmpty());
  see(up);  // which was acted upon already: nothing waits
  EXPECT_EQ(status().held, std::nullopt);
  EXPECT_THAT(acted(), ElementsAre("up"));
  advance(60'000);
  EXPECT_THAT(acted(), IsEmpty());
}

TEST_F(policy_filter, counts_on_when_the_same_state_is_learnt_again) {
  configure(holding(5000));
  see(up);
  see(down);
  advance(3000);
  see(down);
  advance(1999);
  EXPECT_THAT(acted(), ElementsAre("up"));
  advance(1);
  EXPECT_THAT(acted(), ElementsAre("down"));
}

TEST_F(policy_filter, does_not_count_the_time_without_the_service) {
  configure(holding(5000));
  see(up);
  see(down);
  advance(4000);
  filter_.service_gone();
  advance(60'000);
  EXPECT_THAT(acted(), ElementsAre("up"));
  see(down);
  EXPECT_THAT(acted(), ElementsAre("up"));  // which counts until then
  advance(4999);
  EXPECT_THAT(acted(), IsEmpty());
  advance(1);
  EXPECT_THAT(acted(), ElementsAre("down"));
}

TEST_F(policy_filter, tells_the_state_that_stayed_when_the_service_is_back) {
  configure(holding(5000));
  see(up);
  filter_.service_gone();
  see(up);
  EXPECT_THAT(acted(), ElementsAre("up", "up"));
}

TEST_F(policy_filter, adds_a_penalty_with_each_flap_that_halves_with_time) {
  configure(damped());
  see(up);
  EXPECT_EQ(status().penalty, 0);
  see(down);
  EXPECT_EQ(status().penalty, 1000);
  see(unknown);
  see(up);
  EXPECT_EQ(status().penalty, 1000);
  advance(10'000);
  EXPECT_NEAR(status().penalty, 500, 1e-6);
  advance(20'000);
  EXPECT_NEAR(status().penalty, 125, 1e-6);
  EXPECT_EQ(status().suppressed_us, 0U);
  EXPECT_THAT(acted(), ElementsAre("up", "down", "unknown", "up"));
}

TEST_F(policy_filter, suppresses_up_from_the_limit_on_until_the_penalty_has_sunk) {
  configure(damped());
  see(up);
  flap();
  EXPECT_THAT(acted(), ElementsAre("up", "down", "up"));
  flap();
  EXPECT_THAT(acted(), ElementsAre("down"));       // what is bad is acted upon all the same
  EXPECT_EQ(status().suppressed_us, 20'000'000U);  // from 2000 to 500
  EXPECT_EQ(status().held, up);
  EXPECT_EQ(status().held_us, 20'000'000U);
  advance(19'999);
  EXPECT_THAT(acted(), IsEmpty());
  advance(1);
  EXPECT_THAT(acted(), ElementsAre("up"));
  EXPECT_NEAR(status().penalty, 500, 0.1);
  EXPECT_EQ(status().suppressed_us, 0U);
}

TEST_F(policy_filter, acts_on_the_present_state_when_the_suppression_ends) {
  configure(damped());
  see(up);
  flap();
  flap();
  advance(10'000);
  see(down);  // the penalty is 2000 again
  EXPECT_THAT(acted(), ElementsAre("up", "down", "up", "down", "down"));
  EXPECT_NEAR(static_cast<double>(status().suppressed_us), 20e6, 10);
  advance(30'000);
  EXPECT_THAT(acted(), IsEmpty());
  see(up);
  EXPECT_THAT(acted(), ElementsAre("up"));
}

TEST_F(policy_filter, extends_a_suppression_with_flaps_below_the_limit_too) {
  policy of = damped();
  of.suppress = 3000;
  configure(of);
  see(up);
  for (int i = 0; i < 3; ++i) {
    flap();
  }
  advance(20'000);  // 750 left
  flap();
  EXPECT_NEAR(status().penalty, 1750, 1);
  EXPECT_NEAR(static_cast<double>(status().suppressed_us), 10e6 * std::log2(1750.0 / 500), 1e3);
}

TEST_F(policy_filter, suppresses_nothing_for_longer_than_four_half_lives) {
  configure(damped());
  see(up);
  for (int i = 0; i < 1000; ++i) {
    flap();
  }
  EXPECT_EQ(status().penalty, 8000);
  EXPECT_EQ(status().suppressed_us, 40'000'000U);
  acted();
  advance(40'000);
  EXPECT_THAT(acted(), ElementsAre("up"));
}

TEST_F(policy_filter, holds_and_suppresses_together) {
  policy of = damped();
  of.hold_ms = 15'000;
  configure(of);
  see(up);
  flap();
  flap();
  EXPECT_THAT(acted(), ElementsAre("up", "up", "up"));  // nothing has lasted
  see(down);
  advance(15'000);
  EXPECT_THAT(acted(), ElementsAre("down"));
  see(up);
  const std::uint64_t left_ms = status().suppressed_us / 1000;
  EXPECT_LT(left_ms, 15'000U);
  advance(14'999);
  EXPECT_THAT(acted(), IsEmpty());
  advance(1);
  EXPECT_THAT(acted(), ElementsAre("up"));
}

TEST_F(policy_filter, counts_a_flap_that_came_while_the_service_was_away) {
  configure(damped());
  see(up);
  filter_.service_gone();
  see(up);
  EXPECT_EQ(status().penalty, 0);
  filter_.service_gone();
  see(down);
  EXPECT_EQ(status().penalty, 1000);
}

TEST_F(policy_filter, takes_over_what_a_reload_says) {
  configure(damped());
  see(up);
  flap();
  flap();
  acted();
  policy patient = damped(20'000);
  configure(patient);
  EXPECT_EQ(status().penalty, 2000);
  EXPECT_EQ(status().suppressed_us, 40'000'000U);
  patient.suppress = 5000;  // still suppressed: it has not sunk to what is reused
  configure(patient);
  EXPECT_EQ(status().suppressed_us, 40'000'000U);
  configure({});
  EXPECT_EQ(status().penalty, 0);
  advance(0);
  EXPECT_THAT(acted(), ElementsAre("up"));
}

TEST_F(policy_filter, goes_on_after_a_restart_where_an_earlier_one_was) {
  configure(damped());
  see(up);
  flap();
  flap();
  const flap_record known = *filter_.flaps(now_);
  advance(5000);
  acted();
  filter_ = {};
  configure(damped());
  filter_.recall(known, now_);
  EXPECT_NEAR(status().penalty, 2000 * std::sqrt(0.5), 0.01);
  EXPECT_NEAR(static_cast<double>(status().suppressed_us), 15e6, 2);
  see(up);  // what was done before stays
  EXPECT_THAT(acted(), IsEmpty());
  EXPECT_EQ(status().held, up);
  see(down);
  EXPECT_THAT(acted(), ElementsAre("down"));
  see(up);
  advance(22'800);  // with that flap, too
  EXPECT_THAT(acted(), ElementsAre("up"));
  EXPECT_FALSE(status().held);
}

TEST_F(policy_filter, remembers_a_penalty_that_does_not_suppress_and_none_that_is_over) {
  configure(damped());
  EXPECT_FALSE(filter_.flaps(now_));
  see(up);
  flap();
  const flap_record known = *filter_.flaps(now_);
  advance(100'000);
  EXPECT_FALSE(filter_.flaps(now_));
  filter_ = {};
  now_ -= 100'000'000;
  configure(damped());
  filter_.recall(known, now_);
  EXPECT_EQ(status().penalty, 1000);
  acted();
  see(up);
  EXPECT_THAT(acted(), ElementsAre("up"));
}

TEST_F(policy_filter, does_not_believe_every_record) {
  const flap_record suppressed{
      .penalty = 4000, .flapped_us = now_, .suppressed_until_us = now_ + 30'000'000};
  configure({});  // without damping
  filter_.recall(suppressed, now_);
  see(up);
  EXPECT_THAT(acted(), ElementsAre("up"));
  filter_ = {};
  configure(damped());
  filter_.recall({.penalty = 4000, .flapped_us = now_ + 1, .suppressed_until_us = now_ + 2}, now_);
  EXPECT_EQ(status().penalty, 0);
  filter_.recall({.penalty = -4000, .flapped_us = now_, .suppressed_until_us = 0}, now_);
  EXPECT_EQ(status().penalty, 0);
  filter_.recall({.penalty = 1e9, .flapped_us = now_, .suppressed_until_us = UINT64_MAX}, now_);
  EXPECT_EQ(status().suppressed_us, 40'000'000U);  // four half-lives at most
}

TEST(flap_records, are_read_as_they_were_written) {
  const flap_records all{{{"a", "t"}, {.penalty = 1500, .flapped_us = 7, .suppressed_until_us = 9}},
                         {{"b", ".u"}, {.penalty = 12.5, .flapped_us = 8}}};
  const flap_records read = read_flaps(text_of(all));
  EXPECT_EQ(text_of(all), "a t 1500 7 9\nb .u 12.5 8 0\n");
  EXPECT_EQ(text_of(read), text_of(all));
  EXPECT_EQ(text_of(read_flaps("a t 1500 7\nx\n\nb u 1 2 3\nc v nan 2 3\n")), "b u 1 2 3\n");
}

// Whatever comes, in the end, after the hold and four half-lives, what was acted upon last is the
// present state; and up is never acted upon before it has lasted.
TEST_F(policy_filter, acts_on_the_final_state_in_the_end) {
  const unsigned seed = test::one_seed();
  SCOPED_TRACE(test::shown(seed));
  std::mt19937 random(seed);
  for (int round = 0; round < 300; ++round) {
    filter_ = {};
    policy of = damped(static_cast<std::uint32_t>(1000 + random() % 5000));
    of.hold_ms = static_cast<std::uint32_t>(random() % 3 * 700);
    configure(of);
    track_state last = unknown;
    for (int step = 0; step < 40; ++step) {
      if (random() % 8 == 0) {
        filter_.service_gone();
      } else {
        last = static_cast<track_state>(random() % 3);
        see(last);
      }
      advance(random() % 900);
    }
    see(last);
    ASSERT_LE(status().penalty, 8000);
    advance(of.hold_ms + 4 * of.half_life_ms);
    const std::vector<std::string> all = acted();
    ASSERT_FALSE(all.empty());
    ASSERT_EQ(all.back(), word_of(last));
    ASSERT_EQ(filter_.due_us(), reaction::never);
  }
}

}  // namespace
}  // namespace ot::trackpolicy
