// The decision between publishing at once and waiting for a delay, step by step.
#include "state/publication.h"

#include <chrono>

#include "config/delays.h"
#include "platform/memory/controls.h"
#include "platform/status.h"
#include "state/timers.h"
#include "tests/unit/service_fixture.h"

namespace ot::test {
namespace {

using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr track_state unknown = track_state::unknown;
constexpr track_state up = track_state::up;
constexpr track_state down = track_state::down;

constexpr const char* entering = "Entering (hash_db_get_track_item) : ";

// A track "t" that reports come in for.
class publication : public running_service {
 protected:
  void make_track(int delay_up, int delay_down, track_state state = unknown) {
    ASSERT_EQ(object_tracking_set_create_track_delay("t", delay_up, delay_down, true), 0);
    track("t").state = state;
  }
  static int report(track_state state) {
    return object_tracking_set_track_state_in_ledger("t", state);
  }
  wtm_leaf* timer() { return track("t").delay_timer; }
  std::uint32_t left() { return wtm_timer_leaf_remaining(timer()); }
  std::uint32_t publications() { return track("t").state_change_counter; }
};

TEST_F(publication, of_an_unknown_track_is_0_and_nothing_happens) {
  trace();
  EXPECT_EQ(report(up), 0);
  EXPECT_THAT(
      field::take_traces(),
      ElementsAre("(object_tracking_set_track_state_in_ledger) : track t state Track_Up", entering,
                  "(object_tracking_set_track_state_in_ledger) : track t doesn't exist"));
  EXPECT_FALSE(published("t").has_value());
  EXPECT_EQ(field::events_published(), 0U);
}

TEST_F(publication, the_state_it_has_is_nothing_to_do_without_delays) {
  make_track(0, 0, down);
  trace();
  EXPECT_EQ(report(down), 0);
  EXPECT_THAT(
      field::take_traces(),
      ElementsAre("(object_tracking_set_track_state_in_ledger) : track t state Track_Down",
                  entering,
                  "(object_tracking_set_track_state_in_ledger) : track t ledger state Track_Down"));
  EXPECT_EQ(publications(), 0U);
}

TEST_F(publication, without_delays_every_change_goes_out_at_once) {
  make_track(0, 0);
  for (const track_state state : {up, down, unknown, down, up}) {
    EXPECT_EQ(report(state), 0);
    EXPECT_EQ(track("t").state, state);
    EXPECT_EQ(published("t"), state == up ? 1U : 2U);
  }
  EXPECT_EQ(publications(), 5U);
}

TEST_F(publication, of_the_same_state_goes_out_when_only_the_other_way_is_delayed) {
  make_track(0, 10, up);
  EXPECT_EQ(report(up), 0);
  EXPECT_EQ(publications(), 1U);
  EXPECT_EQ(published("t"), 1U);
}

TEST_F(publication, a_change_to_up_waits_for_delay_up_only) {
  make_track(3, 60);
  EXPECT_EQ(report(up), 0);
  EXPECT_EQ(left(), 3U);
  field::advance(seconds{3} - std::chrono::nanoseconds{1});
  EXPECT_EQ(publications(), 0U);
  field::advance(std::chrono::nanoseconds{1});
  EXPECT_EQ(track("t").state, up);
  EXPECT_EQ(publications(), 1U);
  EXPECT_EQ(published("t"), 1U);
  EXPECT_FALSE(wtm_timer_leaf_running(timer()));
}

TEST_F(publication, changes_to_down_and_to_unknown_wait_for_delay_down) {
  for (const track_state state : {down, unknown}) {
    make_track(60, 4, up);
    track("t").state = up;
    EXPECT_EQ(report(state), 0);
    EXPECT_EQ(left(), 4U);
    EXPECT_EQ(track("t").state, up);
    field::advance(seconds{4});
    EXPECT_EQ(track("t").state, state);
    EXPECT_EQ(published("t"), 2U);
  }
}

TEST_F(publication, a_report_that_is_not_delayed_cancels_what_is_pending) {
  make_track(10, 0, unknown);
  EXPECT_EQ(report(up), 0);
  field::advance(seconds{5});
  EXPECT_EQ(report(down), 0);
  EXPECT_EQ(track("t").state, down);
  EXPECT_FALSE(wtm_timer_leaf_running(timer()));
  EXPECT_EQ(get_timer_ctx(timer())->value, 2U);
  field::advance(seconds{60});
  EXPECT_EQ(track("t").state, down);
  EXPECT_EQ(publications(), 1U);
}

TEST_F(publication, a_flap_back_to_the_published_state_cancels_what_is_pending) {
  make_track(10, 10, down);
  EXPECT_EQ(report(up), 0);
  field::advance(seconds{5});
  trace();
  EXPECT_EQ(report(down), 0);
  EXPECT_FALSE(wtm_timer_leaf_running(timer()));
  EXPECT_THAT(field::take_traces(),
              contains_in_order(text_lines{"Timer state and update state are different",
                                           "ctx->state = 1, track_state = 2",
                                           "Entering (stop_ot_timer) : "}));
  field::advance(seconds{60});
  EXPECT_EQ(track("t").state, down);
  EXPECT_EQ(publications(), 0U);
}

TEST_F(publication, a_delay_that_was_taken_away_does_not_publish_what_is_over) {
  make_track(5, 0, down);
  ASSERT_EQ(report(up), 0);
  ASSERT_EQ(object_tracking_set_create_track_delay("t", 0, keep_delay, false), 0);
  EXPECT_EQ(left(), 5U);  // the delay runs on
  EXPECT_EQ(report(down), 0);
  field::advance(seconds{10});
  EXPECT_EQ(track("t").state, down);
  EXPECT_EQ(publications(), 0U);
}

TEST_F(publication, each_state_is_cancelled_by_a_report_of_itself) {
  for (const track_state state : {up, down, unknown}) {
    make_track(10, 10);
    track("t").state = state;
    const track_state other = state == up ? down : up;
    EXPECT_EQ(report(other), 0);
    EXPECT_TRUE(wtm_timer_leaf_running(timer()));
    EXPECT_EQ(report(state), 0);
    EXPECT_FALSE(wtm_timer_leaf_running(timer()));
  }
  EXPECT_EQ(publications(), 0U);
}

TEST_F(publication, a_repeat_of_what_is_pending_lets_the_delay_run) {
  make_track(10, 10, down);
  EXPECT_EQ(report(up), 0);
  field::advance(seconds{6});
  trace();
  EXPECT_EQ(report(up), 0);
  EXPECT_THAT(
      field::take_traces(),
      ElementsAre(
          "(object_tracking_set_track_state_in_ledger) : track t state Track_Up", entering,
          "(object_tracking_set_track_state_in_ledger) : track t ledger state Track_Down",
          "Entering (get_timer_ctx) : ", "Let the timer expire. ctx->state = 1,track_state = 2"));
  EXPECT_EQ(left(), 4U);
  field::advance(seconds{4});
  EXPECT_EQ(track("t").state, up);
}

TEST_F(publication, another_state_starts_the_delay_anew_with_its_own_length) {
  make_track(10, 20, up);
  EXPECT_EQ(report(down), 0);
  field::advance(seconds{15});
  EXPECT_EQ(report(unknown), 0);
  EXPECT_EQ(left(), 20U);
  field::advance(seconds{20});
  EXPECT_EQ(track("t").state, unknown);
  EXPECT_EQ(publications(), 1U);
}

TEST_F(publication, a_pending_change_is_a_context_of_kind_1_on_a_leaf_of_kind_3) {
  make_track(10, 10);
  get_timer_ctx(timer())->name.assign("another");
  EXPECT_EQ(report(up), 0);
  const ot_timer_ctx* ctx = get_timer_ctx(timer());
  EXPECT_EQ(ctx->type, 1U);
  EXPECT_EQ(ctx->name, "t");
  EXPECT_EQ(ctx->value, 1U);
  EXPECT_EQ(wtm_timer_leaf_get_type(timer()), 3);
}

TEST_F(publication, a_timer_that_lost_its_context_gets_a_new_one) {
  make_track(10, 10, down);
  clear_ctx_ot_timer(timer());
  wtm_timer_leaf_set_context(timer(), nullptr);
  trace();
  EXPECT_EQ(report(up), 0);
  EXPECT_THAT(field::take_traces(),
              contains_in_order(text_lines{"Timer state and update state are different",
                                           "ctx->state = -1, track_state = 2"}));
  ASSERT_NE(get_timer_ctx(timer()), nullptr);
  field::advance(seconds{10});
  EXPECT_EQ(track("t").state, up);
}

TEST_F(publication, a_delayed_change_needs_a_delay_timer) {
  make_track(10, 0);
  wtm_leaf* const kept = timer();
  track("t").delay_timer = nullptr;
  trace();
  EXPECT_EQ(report(up), invalid_argument);
  EXPECT_THAT(field::take_traces(), testing::Contains("(object_tracking_set_track_state_in_ledger) "
                                                      ": delay_timer is NULL."));
  EXPECT_EQ(publications(), 0U);
  EXPECT_EQ(report(down), 0);  // at once: no timer is needed
  EXPECT_EQ(track("t").state, down);
  track("t").delay_timer = kept;
}

TEST_F(publication, a_value_that_is_no_state_is_not_delayed_but_dropped) {
  make_track(10, 10, down);
  EXPECT_EQ(report(up), 0);
  EXPECT_EQ(report(static_cast<track_state>(9)), 0);
  EXPECT_FALSE(wtm_timer_leaf_running(timer()));
  field::advance(seconds{60});
  EXPECT_EQ(track("t").state, down);
  EXPECT_EQ(publications(), 0U);
}

TEST_F(publication, the_same_state_twice_with_delays_publishes_nothing) {
  make_track(10, 10, up);
  EXPECT_EQ(report(up), 0);
  EXPECT_EQ(report(up), 0);
  field::advance(seconds{60});
  EXPECT_EQ(publications(), 0U);
  EXPECT_THAT(field::take_messages(), IsEmpty());
}

}  // namespace
}  // namespace ot::test
