// Routes that change faster than they are looked at: whatever is seen when, the tracks end as the
// route does.
#include <algorithm>
#include <string>
#include <vector>

#include "tests/unit/sources/route/fixture.h"

namespace ot::test {
namespace {

// C: the route changes. L: the FIB reads the events and looks. H: the loop runs what that posted.
constexpr const char* in_order = "CCCLLLHHH";

// A look is for the event of a change, and a turn of the loop for what a look has posted.
bool is_possible(const std::string& steps) {
  int changes = 0;
  int looks = 0;
  int turns = 0;
  for (const char step : steps) {
    changes += step == 'C';
    looks += step == 'L';
    turns += step == 'H';
    if (looks > changes || turns > looks) {
      return false;
    }
  }
  return true;
}

std::vector<std::string> interleavings() {
  std::vector<std::string> all;
  std::string steps = in_order;
  std::sort(steps.begin(), steps.end());
  do {
    if (is_possible(steps)) {
      all.push_back(steps);
    }
  } while (std::next_permutation(steps.begin(), steps.end()));
  return all;
}

class route_flaps : public route_service {
 protected:
  void change() {
    there_ = !there_;
    if (there_) {
      field::route_added(net, 16, "eth0");
    } else {
      field::route_removed(net, 16);
    }
  }
  void take(char step) {
    switch (step) {
      case 'C':
        change();
        break;
      case 'L':
        field::fib_events_read();
        break;
      default:
        field::run_pending();
    }
  }
  // What changed is looked at once more, as after every burst.
  void settle() {
    field::fib_events_read();
    field::run_pending();
  }
  [[nodiscard]] std::uint32_t expected() const { return there_ ? 1U : 2U; }

  bool there_ = false;
};

TEST_F(route_flaps, every_order_of_three_changes_looks_and_turns_ends_true) {
  ASSERT_EQ(create("t"), 0);
  field::run_pending();
  field::fib_events_held(true);
  const std::vector<std::string> all = interleavings();
  ASSERT_EQ(all.size(), 42U);
  for (const std::string& steps : all) {
    for (const char step : steps) {
      take(step);
    }
    settle();
    EXPECT_EQ(published("t"), expected()) << steps;
    EXPECT_EQ(entry()->reach_state, expected()) << steps;
  }
}

TEST_F(route_flaps, a_track_tied_within_a_change_agrees_with_those_before_it) {
  ASSERT_EQ(create("first"), 0);
  field::run_pending();
  field::fib_events_held(true);
  change();
  ASSERT_EQ(create("second"), 0);
  EXPECT_EQ(published("second"), 1U) << "it looked for itself";
  change();
  settle();
  EXPECT_EQ(published("first"), 2U);
  EXPECT_EQ(published("second"), 2U);
}

TEST_F(route_flaps, a_notification_whose_look_up_failed_comes_again) {
  ASSERT_EQ(create("t"), 0);
  field::run_pending();
  field::fib_events_held(true);
  change();
  field::fib_events_read();
  field::fail_next("rtclient_lookup", 12);
  field::run_pending();
  EXPECT_EQ(published("t"), 2U);
  settle();
  EXPECT_EQ(published("t"), 1U);
}

TEST_F(route_flaps, an_own_address_is_a_host_route_beside_the_one_that_covers_it) {
  ASSERT_EQ(set_address("host", "10.1.0.0", 32), 0);
  ASSERT_EQ(set_address("link", "10.1.0.0", 31), 0);
  field::route_added("10.1.0.0", 31, "eth0");
  field::run_pending();
  EXPECT_EQ(published("host"), 2U);
  EXPECT_EQ(published("link"), 1U);
  field::own_address_added("10.1.0.0");
  field::run_pending();
  EXPECT_EQ(published("host"), 1U);
  EXPECT_EQ(published("link"), 1U);
  field::own_address_removed("10.1.0.0");
  field::run_pending();
  EXPECT_EQ(published("host"), 2U);
  EXPECT_EQ(published("link"), 1U);
}

}  // namespace
}  // namespace ot::test
