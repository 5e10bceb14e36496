// BFD tracks while each allocation fails in turn: the codes, what is dropped, nothing leaked.
#include "config/lifecycle.h"
#include "platform/memory/alloc_faults.h"
#include "platform/memory/ledger_controls.h"
#include "sources/bfd/track.h"
#include "sources/probe/table.h"
#include "tests/unit/sources/bfd/fixture.h"

namespace ot::test {
namespace {

using testing::Contains;

class bfd_memory : public bfd_service {
 protected:
  void begin_again() {
    stop();
    ASSERT_EQ(start(), 0);
  }
  static std::unique_ptr<bfd_cfg> configuration(const char* name) {
    auto cfg = std::make_unique<bfd_cfg>();
    cfg->name.assign(name);
    cfg->interface.assign("Gi1");
    cfg->destaddress = ip(peer);
    cfg->rate = 300;
    cfg->debounce_count = 3;
    return cfg;
  }
  // Makes the track with its k-th allocation failing.
  int create_failing(std::uint64_t k, const char* name = "t") {
    auto cfg = configuration(name);
    trace();
    int status = 0;
    {
      alloc_faults faults{k};
      status = object_tracking_type_bfdprb_create(std::move(cfg));
      EXPECT_TRUE(faults.hit()) << k;
    }
    field::run_pending();
    return status;
  }
  std::int64_t held_after_the_end() {
    stop();
    field::reset();
    ledger_control_reset();
    return count_live_allocations().count;
  }
};

TEST_F(bfd_memory, without_a_timer_or_a_record_every_track_is_dropped) {
  // The timer's context and leaf, then the track's entry.
  for (std::uint64_t k = 0; k < 3; ++k) {
    begin_again();
    ASSERT_EQ(configure("before", "10.0.0.3"), 0);
    EXPECT_EQ(create_failing(k), no_memory);
    EXPECT_THAT(field::take_traces(),
                Contains(k < 2 ? "(ot_create_bfd_track_entry) : calloc failed for track_entry "
                                 "with: Cannot allocate memory"
                               : "(ot_create_bfd_track_entry) : hash_db_add_new_item failed- no "
                                 "memory to add item "));
    EXPECT_EQ(tracks_table.buckets, nullptr);
    ASSERT_EQ(tracks_table_create(), 0);
  }
}

TEST_F(bfd_memory, without_a_node_every_session_is_dropped) {
  ASSERT_EQ(configure("before", "10.0.0.3"), 0);
  EXPECT_EQ(create_failing(3), -1);
  EXPECT_THAT(field::take_traces(),
              contains_in_order(text_lines{
                  "(insert_track_to_bfdprb_entry) : calloc error for trck_name_item  - Cannot "
                  "allocate memory",
                  "(ot_create_bfd_track_entry) : insert_track_to_bfdprb_entry failed"}));
  EXPECT_EQ(bfdprb_table.buckets, nullptr);
  EXPECT_NE(hash_db_get_track_item("t"), nullptr);
  ASSERT_EQ(bfdprb_table_create(), 0);
}

TEST_F(bfd_memory, without_an_entry_the_probe_table_is_dropped_and_the_sessions_stay) {
  ASSERT_EQ(configure("before", "10.0.0.3"), 0);
  EXPECT_EQ(create_failing(4), no_memory);
  EXPECT_THAT(field::take_traces(),
              contains_in_order(text_lines{
                  "(insert_track_to_bfdprb_entry) : hash_db_add_new_bfdprb_item failed  - Cannot "
                  "allocate memory",
                  "(ot_create_bfd_track_entry) : insert_track_to_bfdprb_entry failed"}));
  EXPECT_NE(entry("10.0.0.3"), nullptr);
  EXPECT_EQ(entry(), nullptr);
  EXPECT_EQ(prb_table.buckets, nullptr);
  ASSERT_EQ(prb_table_create(), 0);
}

TEST_F(bfd_memory, without_a_request_the_track_has_no_session) {
  EXPECT_EQ(create_failing(5), no_memory);
  EXPECT_THAT(field::take_traces(),
              Contains("(ot_bfd_create_single_session) calloc failed with Cannot allocate memory"));
  EXPECT_EQ(track("t").object.bfd.session_id, 0U);
  alloc_faults faults{0};
  EXPECT_EQ(ot_bfd_delete_single_session("t", &track("t").object.bfd), no_memory);
}

TEST_F(bfd_memory, an_item_that_cannot_be_kept_is_refused_with_12) {
  const ledger_path_field path[] = {{"t", 0}, {"0x9", 9}, {"0x32", 50}, {"0x5", 5}, {"Gi1", 0}};
  ledger_change change;
  change.event = ledger_event_create;
  change.fields = path;
  trace();
  {
    alloc_faults faults{0};
    EXPECT_EQ(object_tracking_type_bfdprb_apply(change), no_memory);
  }
  EXPECT_THAT(field::take_traces(),
              Contains("(object_tracking_type_bfdprb_apply) : Out of memory: Cannot allocate "
                       "memory"));
}

TEST_F(bfd_memory, the_session_table_is_refused_with_12) {
  stop();
  alloc_faults faults{0};
  EXPECT_EQ(bfdprb_table_create(), no_memory);
}

TEST_F(bfd_memory, nothing_is_leaked_on_the_way) {
  const std::int64_t before = held_after_the_end();
  gi1 = field::interface_added("Gi1");
  field::bfd_engine_back();
  ASSERT_EQ(start(), 0);
  std::uint64_t failed = 0;
  auto cfg = configuration("t");
  for_each_failing_allocation([&] { object_tracking_type_bfdprb_create(std::move(cfg)); },
                              [&](std::uint64_t, bool hit) {
                                failed += hit ? 1U : 0U;
                                begin_again();
                                cfg = configuration("t");
                              },
                              50);
  EXPECT_GE(failed, 6U);
  cfg.reset();
  ASSERT_EQ(configure("t"), 0);
  field::bfd_engine_away();
  field::run_pending();
  ASSERT_EQ(configure("late", "10.0.0.3"), 0);
  EXPECT_EQ(held_after_the_end(), before);
}

}  // namespace
}  // namespace ot::test
