// The life of a record in the track table: what adding one that is there already leaves alone, and
// what a lost table takes along.
#include "state/track_record.h"

#include "config/delays.h"
#include "core/debug.h"
#include "core/track.h"
#include "platform/memory/alloc_faults.h"
#include "platform/memory/controls.h"
#include "platform/status.h"
#include "state/ledger_state.h"
#include "state/publication.h"
#include "state/timers.h"
#include "tests/unit/service_fixture.h"

namespace ot::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class track_record_life : public running_service {
 protected:
  static ot_track made(const char* name) {
    ot_track record;
    EXPECT_EQ(new_track_record(name, track_type::interface, track_state::unknown, "test", &record),
              0);
    return record;
  }
  static void keep(const char* name) {
    ASSERT_EQ(object_tracking_set_create_track_delay(name, 3, 4, true), 0);
  }
};

TEST_F(track_record_life, a_name_that_is_there_is_76_and_costs_no_track) {
  keep("kept");
  keep("other");
  const ot_track second = made("kept");
  ot_debug[ot_debug_error].enabled = 1;
  EXPECT_EQ(add_track_record(second, "test"), duplicate_key);
  EXPECT_THAT(field::take_traces(), IsEmpty());
  EXPECT_EQ(hash_db_count(tracks_table), 2U);
  EXPECT_EQ(track("kept").delay_up, 3);
  EXPECT_EQ(track("kept").type, track_type::none);
  EXPECT_EQ(track("other").delay_down, 4);
}

TEST_F(track_record_life, a_record_that_is_not_added_gives_its_timer_up) {
  keep("kept");
  const std::int64_t before = count_live_allocations().count;
  const ot_track second = made("kept");
  EXPECT_EQ(add_track_record(second, "test"), duplicate_key);
  EXPECT_EQ(count_live_allocations().count, before);
}

TEST_F(track_record_life, a_table_without_room_loses_every_track_and_is_traced) {
  keep("kept");
  const ot_track fresh = made("fresh");
  trace();
  {
    alloc_faults faults{0};
    EXPECT_EQ(add_track_record(fresh, "test"), no_memory);
  }
  EXPECT_EQ(tracks_table.buckets, nullptr);
  EXPECT_EQ(hash_db_get_track_item("kept"), nullptr);
  EXPECT_THAT(field::take_traces(),
              testing::Contains("(test) : hash_db_add_new_item failed- no memory to add item "));
}

TEST_F(track_record_life, a_running_delay_of_a_released_record_still_publishes) {
  keep("t");
  ASSERT_EQ(object_tracking_set_track_state_in_ledger("t", track_state::up), 0);
  release_track_timers(track("t"));
  EXPECT_EQ(track("t").delay_timer, nullptr);
  field::advance(std::chrono::seconds{3});
  EXPECT_EQ(published("t"), 1U);
}

TEST_F(track_record_life, a_state_is_taken_over_after_a_restart_only) {
  ASSERT_EQ(ledger_write_track_state("t", track_state::up), 0);
  ot_track record;
  record.name.assign("t");
  take_over_published_state(record);
  EXPECT_EQ(record.state, track_state::unknown);
  ot_set_restart(2);
  take_over_published_state(record);
  EXPECT_EQ(record.state, track_state::up);
  EXPECT_EQ(record.source_state, track_state::unknown);
  // A track that never published has no state, whatever its record said.
  record.name.assign("never");
  take_over_published_state(record);
  EXPECT_EQ(record.state, track_state::unknown);
}

TEST_F(track_record_life, a_type_number_is_remembered_for_a_track_that_exists) {
  keep("t");
  set_configured_type("t", 7);
  set_configured_type("absent", 3);
  EXPECT_EQ(track("t").configured_type, 7U);
  EXPECT_EQ(hash_db_count(tracks_table), 1U);
}

}  // namespace
}  // namespace ot::test
