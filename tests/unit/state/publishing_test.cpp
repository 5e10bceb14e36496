// What one publication does: record, message, ledger item, notification, event, recalculation.
#include <chrono>

#include "config/delays.h"
#include "platform/event_subscriber.h"
#include "platform/ledger_status.h"
#include "platform/memory/controls.h"
#include "platform/memory/ledger_controls.h"
#include "state/ledger_state.h"
#include "state/publication.h"
#include "state/timers.h"
#include "tests/unit/service_fixture.h"

namespace ot::test {
namespace {

using std::chrono::milliseconds;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

class publishing : public running_service {
 protected:
  void SetUp() override {
    running_service::SetUp();
    ASSERT_EQ(object_tracking_set_create_track_delay("t", 0, 0, true), 0);
  }
  static int publish(const char* name, track_state state) {
    return object_tracking_set_track_state_in_ledger_after_timer_expired(name, state);
  }
  static bool recalculation_requested() { return wtm_timer_leaf_running(tracks_calc_timer); }
};

TEST_F(publishing, updates_the_record) {
  field::set_wall_clock(1'700'000'777);
  EXPECT_EQ(publish("t", track_state::up), 0);
  EXPECT_EQ(track("t").state, track_state::up);
  EXPECT_EQ(track("t").seconds_last_change, 1'700'000'777);
  EXPECT_EQ(track("t").state_change_counter, 1U);
  EXPECT_EQ(track("t").source_state, track_state::unknown);
}

TEST_F(publishing, counts_and_dates_a_publication_of_the_same_state_too) {
  publish("t", track_state::up);
  field::take_messages();
  field::set_wall_clock(1'800'000'000);
  publish("t", track_state::up);
  EXPECT_EQ(track("t").state_change_counter, 2U);
  EXPECT_EQ(track("t").seconds_last_change, 1'800'000'000);
  EXPECT_THAT(field::take_messages(), IsEmpty());
}

TEST_F(publishing, notifies_the_operator_of_a_changed_state) {
  publish("t", track_state::up);
  publish("t", track_state::down);
  publish("t", track_state::unknown);
  EXPECT_THAT(field::take_messages(),
              ElementsAre("OT-SERVICES-6-TRACK_INFO: track t state Track_Up",
                          "OT-SERVICES-6-TRACK_INFO: track t state Track_Down",
                          "OT-SERVICES-6-TRACK_INFO: track t state Unknown"));
}

TEST_F(publishing, gives_the_log_track_and_states_as_fields) {
  publish("t", track_state::up);
  publish("t", track_state::down);
  EXPECT_THAT(field::take_message_fields(),
              ElementsAre("OT_TRACK=t OT_STATE=up OT_PREVIOUS=unknown",
                          "OT_TRACK=t OT_STATE=down OT_PREVIOUS=up"));
}

TEST_F(publishing, writes_1_for_up_and_2_for_anything_else) {
  for (const auto& [state, item] : {std::pair{1U, 1U}, {2U, 2U}, {0U, 2U}, {7U, 2U}}) {
    publish("t", static_cast<track_state>(state));
    ledger_value value;
    ASSERT_EQ(ledger_control_peek("/oper/gl/object-tracking/t", value), 0);
    EXPECT_EQ(value.kind, ledger_kind::u32);
    EXPECT_EQ(value.length, 4U);
    EXPECT_EQ(value.as_u32(), item) << state;
  }
}

TEST_F(publishing, queues_a_notification_with_the_state_itself) {
  publish("t", track_state::up);
  publish("t", track_state::unknown);
  EXPECT_THAT(take_notifications(), IsEmpty());
  field::advance(milliseconds{100});
  EXPECT_THAT(take_notifications(), ElementsAre("t set 1", "t set 0"));
}

TEST_F(publishing, publishes_one_event_each_time) {
  evdl_subscriber* subscriber = nullptr;
  ASSERT_EQ(evdl_subscribe({}, &subscriber), 0);
  field::run_pending();
  publish("t", track_state::up);
  publish("t", track_state::unknown);
  publish(std::string(39, 'n').c_str(), track_state::down);
  field::run_pending();
  std::vector<std::string> events;
  evdl_receive(subscriber, 0, [&](const evdl_track_event& event) {
    events.push_back(event.track + " " + std::to_string(event.state));
  });
  EXPECT_THAT(events, ElementsAre("t 1", "t 0", std::string(31, 'n') + " 2"));
  evdl_unsubscribe(subscriber);
}

TEST_F(publishing, writes_the_item_then_queues_the_notification_then_publishes_the_event) {
  std::optional<std::uint32_t> written;
  std::uint64_t events = 99;
  field::watch_traces([&](const std::string& line) {
    if (line == "OT DPV - Notification 1 queued (t)") {
      written = published("t");
      events = field::events_published();
    }
  });
  trace();
  publish("t", track_state::up);
  EXPECT_EQ(written, 1U);
  EXPECT_EQ(events, 0U);
  EXPECT_EQ(field::events_published(), 1U);
}

TEST_F(publishing, has_the_record_and_the_message_before_anything_leaves) {
  track_state state = track_state::unknown;
  text_lines messages;
  field::watch_traces([&](const std::string& line) {
    if (line == "OT DPV - Notification 1 queued (t)") {
      state = track("t").state;
      messages = field::take_messages();
    }
  });
  trace();
  publish("t", track_state::up);
  EXPECT_EQ(state, track_state::up);
  EXPECT_THAT(messages, ElementsAre("OT-SERVICES-6-TRACK_INFO: track t state Track_Up"));
}

// The name is cut in the event, its length is not: so it is nobody else's.
TEST_F(publishing, a_long_name_is_not_taken_for_the_name_that_it_is_cut_to) {
  evdl_subscriber* subscriber = nullptr;
  const std::string cut(31, 'n');
  const evdl_filter wanted[] = {{cut, true, 0}};
  ASSERT_EQ(evdl_subscribe(wanted, &subscriber), 0);
  publish((cut + "n").c_str(), track_state::up);
  publish(cut.c_str(), track_state::down);
  std::vector<std::uint32_t> states;
  evdl_receive(subscriber, 0,
               [&](const evdl_track_event& event) { states.push_back(event.state); });
  EXPECT_THAT(states, ElementsAre(2U));
  evdl_unsubscribe(subscriber);
}

TEST_F(publishing, requests_a_recalculation_of_the_lists) {
  EXPECT_FALSE(recalculation_requested());
  publish("t", track_state::up);
  EXPECT_TRUE(recalculation_requested());
  field::advance(milliseconds{20});
  EXPECT_FALSE(recalculation_requested());
}

TEST_F(publishing, for_a_track_that_is_gone_still_reaches_the_outside) {
  EXPECT_EQ(publish("gone", track_state::up), 0);
  EXPECT_EQ(published("gone"), 1U);
  EXPECT_EQ(field::events_published(), 1U);
  EXPECT_THAT(field::take_messages(), IsEmpty());
  EXPECT_TRUE(recalculation_requested());
  EXPECT_EQ(hash_db_get_track_item("gone"), nullptr);
  field::advance(milliseconds{100});
  EXPECT_THAT(take_notifications(), ElementsAre("gone set 1"));
}

TEST_F(publishing, without_a_bound_ledger_stays_inside) {
  ot_ha_ledger_unbind();
  EXPECT_EQ(publish("t", track_state::up), 0);
  EXPECT_EQ(track("t").state, track_state::up);
  EXPECT_EQ(track("t").state_change_counter, 1U);
  EXPECT_TRUE(recalculation_requested());
  EXPECT_FALSE(published("t").has_value());
  EXPECT_EQ(field::events_published(), 0U);
  field::advance(milliseconds{200});
  EXPECT_THAT(take_notifications(), IsEmpty());
}

TEST_F(publishing, a_failed_write_is_returned_and_everything_else_still_done) {
  ledger_control_fail_next(ledger_operation::set, ledger_full);
  EXPECT_EQ(publish("t", track_state::up), ledger_full);
  EXPECT_EQ(track("t").state, track_state::up);
  EXPECT_EQ(field::events_published(), 1U);
  EXPECT_TRUE(recalculation_requested());
  EXPECT_FALSE(published("t").has_value());
  field::advance(milliseconds{100});
  EXPECT_THAT(take_notifications(), ElementsAre("t set 1"));
}

TEST_F(publishing, a_failed_write_reaches_the_source_that_reported) {
  ledger_control_fail_next(ledger_operation::set, ledger_full);
  EXPECT_EQ(object_tracking_set_track_state_in_ledger("t", track_state::up), ledger_full);
}

TEST_F(publishing, a_failed_write_after_a_delay_is_traced) {
  ASSERT_EQ(object_tracking_set_create_track_delay("t", 1, 0, true), 0);
  ASSERT_EQ(object_tracking_set_track_state_in_ledger("t", track_state::up), 0);
  ledger_control_fail_next(ledger_operation::set, ledger_full);
  trace();
  field::advance(std::chrono::seconds{1});
  EXPECT_THAT(field::take_traces(),
              Contains("(handle_ot_wtm_timer_expired) : "
                       "object_tracking_set_track_state_in_ledger_after_timer_expired failed- The "
                       "ledger is full"));
}

TEST_F(publishing, is_traced_with_the_messages_text) {
  trace();
  publish("t", track_state::up);
  EXPECT_THAT(
      field::take_traces(),
      contains_in_order(text_lines{
          ("(object_tracking_set_track_state_in_ledger_after_timer_expired) : track t state "
           "Track_Up"),
          "Entering (hash_db_get_track_item) : ", "OT DPV - Notification 1 queued (t)",
          "Entering (object_tracking_calc_tracks_state) : ", "Entering (set_ot_wait_timer) : "}));
}

TEST_F(publishing, a_state_that_is_none_has_an_empty_text) {
  publish("t", static_cast<track_state>(9));
  EXPECT_THAT(field::take_messages(), ElementsAre("OT-SERVICES-6-TRACK_INFO: track t state "));
}

}  // namespace
}  // namespace ot::test
