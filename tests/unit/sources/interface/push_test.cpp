// An interface's state pushed to the tracks that follow it.
#include "platform/ledger_status.h"
#include "platform/memory/controls.h"
#include "platform/memory/ledger_controls.h"
#include "sources/interface/track.h"
#include "tests/unit/service_fixture.h"

namespace ot::test {
namespace {

using testing::Contains;
using testing::ElementsAre;

// Tracks "a", "b" and "c" on an interface that does not exist; all unknown.
class interface_push : public running_service {
 protected:
  void SetUp() override {
    running_service::SetUp();
    for (const char* name : {"a", "b", "c"}) {
      ASSERT_EQ(object_tracking_type_interface_create("Gi9", name), 0);
    }
    entry = hash_db_get_interface_item("Gi9");
    ASSERT_NE(entry, nullptr);
    forget_output();
  }
  void push(std::uint32_t state) { object_tracking_change_interface_state(entry, state); }

  interface_entry* entry = nullptr;
};

TEST_F(interface_push, up_sets_every_track_up_newest_first) {
  push(ifm_state_up);
  EXPECT_EQ(entry->effective_state, 3U);
  EXPECT_THAT(field::take_messages(),
              ElementsAre("OT-SERVICES-6-TRACK_INFO: track c state Track_Up",
                          "OT-SERVICES-6-TRACK_INFO: track b state Track_Up",
                          "OT-SERVICES-6-TRACK_INFO: track a state Track_Up"));
}

TEST_F(interface_push, every_other_state_sets_unknown_and_up_tracks_down) {
  for (const std::uint32_t state : {0U, 1U, 2U, 17U, 18U, 99U}) {
    track("a").source_state = track("a").state = track_state::unknown;
    track("b").source_state = track("b").state = track_state::up;
    push(state);
    EXPECT_EQ(entry->effective_state, state);
    for (const char* name : {"a", "b", "c"}) {
      EXPECT_EQ(track(name).source_state, track_state::down) << state;
      EXPECT_EQ(track(name).state, track_state::down) << state;
      EXPECT_EQ(published(name), 2U);
    }
  }
}

TEST_F(interface_push, a_track_in_the_target_state_is_not_published_again) {
  push(ifm_state_up);
  const std::uint32_t before = track("a").state_change_counter;
  push(ifm_state_up);
  EXPECT_EQ(track("a").state_change_counter, before);
}

TEST_F(interface_push, a_missing_track_stops_the_walk) {
  wtm_leaf* const timer = track("b").delay_timer;
  const ot_track kept = track("b");
  ASSERT_EQ(hash_db_delete(tracks_table, "b"), 0);
  trace();
  push(ifm_state_up);
  EXPECT_THAT(field::take_traces(),
              Contains("(object_tracking_change_interface_state) : track b not found"));
  EXPECT_EQ(track("c").state, track_state::up);
  EXPECT_EQ(track("a").state, track_state::unknown);
  ASSERT_EQ(hash_db_add_new_item(tracks_table, "b", &kept), 0);
  EXPECT_EQ(track("b").delay_timer, timer);
}

TEST_F(interface_push, a_failed_publication_stops_the_walk) {
  ledger_control_fail_next(ledger_operation::set, ledger_full);
  trace();
  push(ifm_state_up);
  EXPECT_THAT(field::take_traces(), Contains("(object_tracking_change_interface_state) : "
                                             "object_tracking_set_track_state_in_ledger failed"));
  EXPECT_EQ(track("c").state, track_state::up);
  EXPECT_EQ(track("b").state, track_state::unknown);
  EXPECT_EQ(track("a").state, track_state::unknown);
}

TEST_F(interface_push, a_failed_publication_keeps_the_source_state) {
  ledger_control_fail_next(ledger_operation::set, ledger_full);
  push(ifm_state_up);
  EXPECT_EQ(track("c").source_state, track_state::up);
  EXPECT_EQ(track("b").source_state, track_state::unknown);
  // So it is not pushed again, while the others are.
  const std::uint32_t before = track("c").state_change_counter;
  push(ifm_state_up);
  EXPECT_EQ(track("c").state_change_counter, before);
  EXPECT_EQ(track("b").source_state, track_state::up);
  EXPECT_EQ(track("a").source_state, track_state::up);
}

}  // namespace
}  // namespace ot::test
