// A probe track that is given an operation again while its delay runs: the track gets another
// timer, and what the old one has started still comes.
#include "tests/unit/sources/probe/fixture.h"

namespace ot::test {
namespace {

using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;

class probe_delay_takeover : public probe_service {
 protected:
  // Up and published; then down, which waits for 10 s of which 4 have passed. The operation's item
  // is taken away and given back.
  void SetUp() override {
    probe_service::SetUp();
    field::probe_result(7, 1);
    ASSERT_EQ(set_op("t", 7), 0);
    ASSERT_EQ(commit({set_number(track_path("t", "delay_down"), 10)}), 0);
    field::probe_result(7, 2);
    let_pass(seconds{2});
    let_pass(seconds{4});
    ASSERT_EQ(wtm_timer_leaf_remaining(track("t").delay_timer), 6U);
    ASSERT_EQ(track("t").state, track_state::up);
    old_timer = track("t").delay_timer;
    ASSERT_EQ(commit({remove_item(op_item("t"))}), 0);
    ASSERT_TRUE(wtm_timer_leaf_running(old_timer));
    field::take_messages();
  }
  const wtm_leaf* old_timer = nullptr;
};

TEST_F(probe_delay_takeover, expires_when_it_was_due_and_publishes) {
  ASSERT_EQ(set_op("t", 5), 0);
  ASSERT_NE(track("t").delay_timer, old_timer);
  field::probe_result(5, 2);
  next_poll();
  let_pass(seconds{4} - std::chrono::nanoseconds{1});
  EXPECT_EQ(track("t").state, track_state::up);
  let_pass(std::chrono::nanoseconds{1});
  EXPECT_EQ(track("t").state, track_state::down);
  EXPECT_THAT(field::take_messages(),
              ElementsAre("OT-SERVICES-6-TRACK_INFO: track t state Track_Down"));
}

TEST_F(probe_delay_takeover, publishes_what_is_pending_then) {
  field::probe_result(5, 1);
  ASSERT_EQ(set_op("t", 5), 0);
  const std::uint32_t publications = track("t").state_change_counter;
  let_pass(seconds{6});
  EXPECT_EQ(track("t").state, track_state::up);
  EXPECT_THAT(field::take_messages(), IsEmpty());
  // Three polls of an up track without a delay up, and the old delay.
  EXPECT_EQ(track("t").state_change_counter, publications + 4);
}

TEST_F(probe_delay_takeover, publishes_nothing_once_the_track_is_gone) {
  field::probe_result(5, 1);
  ASSERT_EQ(commit({set_number(track_path("t", "a"), 1), set_number(op_item("t"), 5)}), 0);
  ASSERT_EQ(delete_track("t"), 0);
  let_pass(seconds{20});
  EXPECT_EQ(published("t"), std::nullopt);
}

TEST_F(probe_delay_takeover, is_given_up_with_the_service) {
  ASSERT_EQ(set_op("t", 5), 0);
  stop();  // the leak checker watches
}

}  // namespace
}  // namespace ot::test
