// The delay items: what they store, what they create, and what they leave alone.
#include "config/delays.h"

#include <chrono>

#include "core/debug.h"
#include "platform/memory/alloc_faults.h"
#include "platform/memory/controls.h"
#include "platform/status.h"
#include "state/publication.h"
#include "state/timers.h"
#include "tests/unit/service_fixture.h"

namespace ot::test {
namespace {

using std::chrono::seconds;
using testing::Contains;
using testing::ElementsAre;

class delays : public running_service {
 protected:
  int set_up(std::uint32_t delay) {
    return commit({set_number(track_path("t", "delay_up"), delay)});
  }
  int set_down(std::uint32_t delay) {
    return commit({set_number(track_path("t", "delay_down"), delay)});
  }
};

TEST_F(delays, the_first_item_creates_a_track_without_type) {
  field::set_wall_clock(1'700'000'123);
  ASSERT_EQ(set_up(7), 0);
  const ot_track& made = track("t");
  EXPECT_EQ(made.name, "t");
  EXPECT_EQ(made.delay_up, 7);
  EXPECT_EQ(made.delay_down, 0);
  EXPECT_EQ(made.type, track_type::none);
  EXPECT_EQ(made.configured_type, 0U);
  EXPECT_EQ(made.state, track_state::unknown);
  EXPECT_EQ(made.source_state, track_state::unknown);
  EXPECT_EQ(made.state_change_counter, 0U);
  EXPECT_EQ(made.seconds_last_change, 1'700'000'123);
  EXPECT_EQ(made.poll_timer, nullptr);
  EXPECT_FALSE(published("t").has_value());
}

TEST_F(delays, the_new_track_has_a_stopped_delay_timer_with_a_context_of_kind_3) {
  ASSERT_EQ(set_down(7), 0);
  EXPECT_EQ(track("t").delay_up, 0);
  EXPECT_EQ(track("t").delay_down, 7);
  wtm_leaf* timer = track("t").delay_timer;
  ASSERT_NE(timer, nullptr);
  EXPECT_FALSE(wtm_timer_leaf_running(timer));
  EXPECT_EQ(wtm_timer_leaf_get_type(timer), 3);
  const ot_timer_ctx* ctx = get_timer_ctx(timer);
  ASSERT_NE(ctx, nullptr);
  EXPECT_EQ(ctx->type, 3U);
  EXPECT_EQ(ctx->name, "t");
  EXPECT_EQ(ctx->value, 0U);
}

TEST_F(delays, each_item_changes_its_own_delay) {
  ASSERT_EQ(set_up(7), 0);
  ASSERT_EQ(set_down(9), 0);
  EXPECT_EQ(track("t").delay_up, 7);
  EXPECT_EQ(track("t").delay_down, 9);
  ASSERT_EQ(set_up(8), 0);
  EXPECT_EQ(track("t").delay_up, 8);
  EXPECT_EQ(track("t").delay_down, 9);
}

TEST_F(delays, keep_16_bits_of_the_value) {
  struct row {
    std::uint32_t value;
    std::uint16_t stored;
  };
  for (const row& wrapped :
       {row{65535, 65535}, row{65536, 0}, row{65537, 1}, row{0xffffffff, 65535}, row{180, 180}}) {
    ASSERT_EQ(set_up(wrapped.value), 0);
    ASSERT_EQ(set_down(wrapped.value), 0);
    EXPECT_EQ(track("t").delay_up, wrapped.stored) << wrapped.value;
    EXPECT_EQ(track("t").delay_down, wrapped.stored) << wrapped.value;
  }
}

TEST_F(delays, deleting_an_item_makes_the_change_immediate) {
  ASSERT_EQ(set_up(7), 0);
  ASSERT_EQ(set_down(9), 0);
  ASSERT_EQ(commit({remove_item(track_path("t", "delay_up"))}), 0);
  EXPECT_EQ(track("t").delay_up, 0);
  EXPECT_EQ(track("t").delay_down, 9);
  ASSERT_EQ(commit({remove_item(track_path("t", "delay_down"))}), 0);
  EXPECT_EQ(track("t").delay_down, 0);
}

TEST_F(delays, deleting_an_item_of_an_unknown_track_creates_nothing) {
  const ledger_path_field name{"t", 0};
  ledger_change change;
  change.event = ledger_event_delete;
  change.fields = {&name, 1};
  EXPECT_EQ(object_tracking_delay_up_apply(change), 0);
  EXPECT_EQ(object_tracking_delay_down_apply(change), 0);
  EXPECT_EQ(hash_db_count(tracks_table), 0U);
}

TEST_F(delays, an_item_without_a_track_name_is_22) {
  ledger_change change;
  change.event = ledger_event_create;
  EXPECT_EQ(object_tracking_delay_up_apply(change), invalid_argument);
  EXPECT_EQ(object_tracking_delay_down_apply(change), invalid_argument);
}

TEST_F(delays, a_probe_track_never_goes_without) {
  ASSERT_EQ(set_up(7), 0);
  track("t").type = track_type::probe;
  ASSERT_EQ(set_up(0), 0);
  ASSERT_EQ(set_down(0), 0);
  EXPECT_EQ(track("t").delay_up, 2);
  EXPECT_EQ(track("t").delay_down, 2);
  ASSERT_EQ(set_up(1), 0);
  EXPECT_EQ(track("t").delay_up, 1);
  ASSERT_EQ(commit({remove_item(track_path("t", "delay_up"))}), 0);
  EXPECT_EQ(track("t").delay_up, 2);
  track("t").type = track_type::none;
}

TEST_F(delays, the_call_leaves_alone_what_it_is_asked_to_keep) {
  EXPECT_EQ(object_tracking_set_create_track_delay("t", 5, 6, false), 0);
  EXPECT_EQ(hash_db_count(tracks_table), 0U);
  EXPECT_EQ(object_tracking_set_create_track_delay("t", 5, 6, true), 0);
  EXPECT_EQ(object_tracking_set_create_track_delay("t", keep_delay, keep_delay, true), 0);
  EXPECT_EQ(track("t").delay_up, 5);
  EXPECT_EQ(track("t").delay_down, 6);
  EXPECT_EQ(object_tracking_set_create_track_delay("u", keep_delay, keep_delay, true), 0);
  EXPECT_EQ(track("u").delay_up, 0);
  EXPECT_EQ(track("u").delay_down, 0);
}

TEST_F(delays, a_running_delay_goes_on_as_it_was_started) {
  ASSERT_EQ(set_up(10), 0);
  ASSERT_EQ(object_tracking_set_track_state_in_ledger("t", track_state::up), 0);
  field::advance(seconds{4});
  ASSERT_EQ(set_up(60), 0);
  EXPECT_EQ(wtm_timer_leaf_remaining(track("t").delay_timer), 6U);
  ASSERT_EQ(commit({remove_item(track_path("t", "delay_up"))}), 0);
  field::advance(seconds{5});
  EXPECT_EQ(track("t").state, track_state::unknown);
  field::advance(seconds{1});
  EXPECT_EQ(track("t").state, track_state::up);
}

TEST_F(delays, what_they_do_is_traced) {
  ASSERT_EQ(set_up(7), 0);
  trace();
  ASSERT_EQ(set_up(65540), 0);
  EXPECT_THAT(field::take_traces(),
              ElementsAre("Entering (object_tracking_default_verify) : ",
                          "Entering (object_tracking_delay_up_apply) : ",
                          "(object_tracking_delay_up_apply) :track_name t, delay up 4",
                          "(object_tracking_delay_up_apply) :LEDGER_EVENT_CREATE or "
                          "LEDGER_EVENT_SET",
                          "Entering (object_tracking_set_create_track_delay) : ",
                          "(object_tracking_set_create_track_delay) track t:",
                          "Entering (hash_db_get_track_item) : "));
  ASSERT_EQ(set_down(3), 0);
  EXPECT_THAT(field::take_traces(),
              Contains("(object_tracking_delay_down_apply) :track_name t, delay down 3"));
  ASSERT_EQ(commit({remove_item(track_path("t", "delay_down"))}), 0);
  EXPECT_THAT(field::take_traces(),
              Contains("(object_tracking_delay_down_apply) :LEDGER_EVENT_DELETE"));
}

TEST_F(delays, that_find_no_memory_for_their_track_are_traced_and_12) {
  const ledger_path_field name{"t", 0};
  ledger_value seconds_up;
  ASSERT_EQ(ledger_value_assign(seconds_up, ledger_kind::u32, bytes_of_numbers({7})), 0);
  ledger_change change;
  change.event = ledger_event_create;
  change.fields = {&name, 1};
  change.new_value = &seconds_up;
  ot_debug[ot_debug_error].enabled = 1;
  const struct {
    const char* who;
    ledger_apply_fn apply;
  } rows[] = {{"object_tracking_delay_up_apply", object_tracking_delay_up_apply},
              {"object_tracking_delay_down_apply", object_tracking_delay_down_apply}};
  for (const auto& row : rows) {
    field::take_traces();
    {
      alloc_faults faults{0};
      EXPECT_EQ(row.apply(change), no_memory);
    }
    EXPECT_THAT(field::take_traces(),
                ElementsAre("(object_tracking_set_create_track_delay) : malloc() failed.",
                            "(" + std::string{row.who} +
                                ") : object_tracking_set_create_track_delay failed - Cannot "
                                "allocate memory"));
    EXPECT_EQ(hash_db_count(tracks_table), 0U);
  }
}

}  // namespace
}  // namespace ot::test
