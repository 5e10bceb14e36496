// Every operation of the core, the configuration and the interface source that needs memory, with
// each of its allocations failing in turn: code 12, the state unchanged or as dropped on purpose,
// nothing leaked, and success once nothing fails.
#include "platform/memory/alloc_faults.h"

#include "config/delays.h"
#include "config/lifecycle.h"
#include "core/hash_db.h"
#include "core/track.h"
#include "platform/event_manager.h"
#include "platform/memory/controls.h"
#include "platform/memory/ledger_controls.h"
#include "platform/service.h"
#include "platform/status.h"
#include "sources/interface/track.h"
#include "state/ledger_state.h"
#include "state/publication.h"
#include "state/timers.h"
#include "tests/unit/service_fixture.h"

namespace ot::test {
namespace {

TEST(hash_db_without_memory, creating_leaves_the_table_uncreated) {
  hash_db table;
  int status = 0;
  const std::uint64_t failures =
      for_each_failing_allocation([&] { status = hash_db_create_str(table, 8, 16, 4); },
                                  [&](std::uint64_t, bool hit) {
                                    EXPECT_EQ(status, hit ? no_memory : 0);
                                    EXPECT_EQ(table.buckets == nullptr, hit);
                                  });
  EXPECT_EQ(failures, 1U);
  hash_db_destroy(table);
}

TEST(hash_db_without_memory, adding_changes_nothing) {
  hash_db table;
  ASSERT_EQ(hash_db_create_int(table, 8, 4), 0);
  const std::uint32_t key = 5;
  int status = 0;
  const std::uint64_t failures =
      for_each_failing_allocation([&] { status = hash_db_add_new_item(table, &key, &key); },
                                  [&](std::uint64_t, bool hit) {
                                    EXPECT_EQ(status, hit ? no_memory : 0);
                                    EXPECT_EQ(hash_db_count(table), hit ? 0U : 1U);
                                  });
  EXPECT_EQ(failures, 1U);
  hash_db_destroy(table);
}

// A service with the tracks "kept" and "kept2" on the interface Gi1, for each failing run anew.
class without_memory : public running_service {
 protected:
  void SetUp() override {
    running_service::SetUp();
    field::interface_added("Gi1");
    prepare();
  }

  // Runs `operation` on a fresh service with each allocation failing in turn. `check(k, status)`
  // looks at what a hit run left. The last run succeeds. Returns the number of failing runs.
  template <typename Operation, typename Check>
  std::uint64_t fail_each(Operation&& operation, Check&& check) {
    int status = 0;
    return for_each_failing_allocation([&] { status = operation(); },
                                       [&](std::uint64_t k, bool hit) {
                                         if (!hit) {
                                           EXPECT_EQ(status, 0);
                                           return;
                                         }
                                         check(k, status);
                                         begin_again();
                                       },
                                       50);
  }

  // What the service and the router hold once the service is gone.
  std::int64_t held_after_the_end() {
    begin_again();
    stop();
    field::reset();
    ledger_control_reset();
    return count_live_allocations().count;
  }

  static bool exists(const char* name) { return hash_db_get_track_item(name) != nullptr; }
  static bool followed(const char* interface) {
    const interface_entry* entry = hash_db_get_interface_item(interface);
    return entry != nullptr && entry->tracks != nullptr;
  }

 private:
  void begin_again() {
    stop();
    ASSERT_EQ(start(), 0);
    prepare();
  }
  void prepare() {
    for (const char* name : {"kept", "kept2"}) {
      ASSERT_EQ(object_tracking_set_create_track_delay(name, 10, 10, true), 0);
    }
    ASSERT_EQ(object_tracking_type_interface_create("Gi1", "kept"), 0);
    forget_output();
  }
};

TEST_F(without_memory, a_delay_item_makes_no_track_or_drops_them_all) {
  trace();
  std::vector<bool> dropped;
  fail_each([] { return object_tracking_set_create_track_delay("new", 1, 1, true); },
            [&](std::uint64_t, int status) {
              EXPECT_EQ(status, no_memory);
              EXPECT_FALSE(exists("new"));
              EXPECT_EQ(exists("kept"), exists("kept2"));
              dropped.push_back(!exists("kept"));
              EXPECT_EQ(tracks_table.buckets == nullptr, dropped.back());
            });
  // The context, the timer leaf, and last the entry: then the table is given up.
  EXPECT_THAT(dropped, testing::ElementsAre(false, false, true));
  EXPECT_TRUE(exists("new"));
}

TEST_F(without_memory, making_a_track_is_traced) {
  trace();
  const auto make = [] { return object_tracking_set_create_track_delay("new", 1, 1, true); };
  {
    alloc_faults faults{0};
    EXPECT_EQ(make(), no_memory);
  }
  EXPECT_THAT(field::take_traces(),
              testing::Contains("(object_tracking_set_create_track_delay) : malloc() failed."));
  {
    alloc_faults faults{2};
    EXPECT_EQ(make(), no_memory);
  }
  EXPECT_THAT(field::take_traces(),
              testing::Contains("(object_tracking_set_create_track_delay) : hash_db_add_new_item "
                                "failed- no memory to add item "));
}

TEST_F(without_memory, changing_delays_needs_none) {
  EXPECT_EQ(fail_each([] { return object_tracking_set_create_track_delay("kept", 1, 1, true); },
                      [](std::uint64_t, int) {}),
            0U);
}

TEST_F(without_memory, a_new_track_on_a_new_interface_is_not_half_made) {
  text_lines left;
  fail_each([] { return object_tracking_type_interface_create("Gi9", "new"); },
            [&](std::uint64_t k, int status) {
              EXPECT_EQ(status, k < 5 ? no_memory : 0);
              EXPECT_EQ(followed("Gi9"), k >= 5);
              left.push_back(std::string{exists("kept") ? "tracks" : "no tracks"} +
                             (interfaces_table.buckets != nullptr ? ", interfaces" : ""));
            });
  // Node, context, leaf; the track's entry, which drops all tracks; the interface's entry, which
  // drops all interfaces; the two pieces of the notification, which is dropped.
  EXPECT_THAT(left, testing::ElementsAre("tracks, interfaces", "tracks, interfaces",
                                         "tracks, interfaces", "no tracks, interfaces", "tracks",
                                         "tracks, interfaces", "tracks, interfaces"));
  EXPECT_TRUE(followed("Gi9"));
}

TEST_F(without_memory, a_present_track_is_not_tied) {
  std::vector<bool> interfaces_kept;
  fail_each([] { return object_tracking_type_interface_create("Gi9", "kept2"); },
            [&](std::uint64_t, int status) {
              EXPECT_EQ(status, no_memory);
              EXPECT_TRUE(exists("kept2"));
              EXPECT_FALSE(followed("Gi9"));
              interfaces_kept.push_back(interfaces_table.buckets != nullptr);
              if (interfaces_kept.back()) {
                EXPECT_EQ(track("kept2").type, track_type::none);
              }
            });
  EXPECT_THAT(interfaces_kept, testing::ElementsAre(true, false));
}

TEST_F(without_memory, a_pending_change_without_context_is_refused_and_the_timer_stopped) {
  fail_each(
      [this] {
        wtm_leaf* timer = track("kept2").delay_timer;
        clear_ctx_ot_timer(timer);
        wtm_timer_leaf_set_context(timer, nullptr);
        return object_tracking_set_track_state_in_ledger("kept2", track_state::up);
      },
      [this](std::uint64_t, int status) {
        EXPECT_EQ(status, no_memory);
        EXPECT_FALSE(wtm_timer_leaf_running(track("kept2").delay_timer));
        EXPECT_EQ(track("kept2").state, track_state::unknown);
      });
  EXPECT_TRUE(wtm_timer_leaf_running(track("kept2").delay_timer));
}

TEST_F(without_memory, a_publication_goes_out_without_its_notification) {
  int notified_runs = 0;
  fail_each(
      [] {
        return object_tracking_set_track_state_in_ledger_after_timer_expired("kept2",
                                                                             track_state::up);
      },
      [&](std::uint64_t, int status) {
        EXPECT_EQ(status, 0);
        EXPECT_EQ(track("kept2").state, track_state::up);
        EXPECT_EQ(published("kept2"), 1U);
        field::advance(std::chrono::milliseconds{100});
        const std::vector<std::string> sent = take_notifications();
        notified_runs += testing::Matches(testing::Contains("kept2 set 1"))(sent) ? 1 : 0;
      });
  EXPECT_EQ(notified_runs, 0);
}

TEST_F(without_memory, deleting_a_track_goes_on_without_its_notification) {
  fail_each([] { return object_tracking_track_delete("kept2"); },
            [](std::uint64_t, int status) {
              EXPECT_EQ(status, 0);
              EXPECT_FALSE(exists("kept2"));
            });
}

TEST_F(without_memory, the_tables_and_process_timers_report_12_at_start_up) {
  stop();
  for (const auto create : {tracks_table_create, interfaces_table_create}) {
    alloc_faults faults{0};
    EXPECT_EQ(create(), no_memory);
  }
}

TEST_F(without_memory, a_start_up_fails_cleanly_or_goes_on_without_an_outlet) {
  stop();
  ASSERT_EQ(evm_create(&manager), 0);
  int status = 0;
  const std::uint64_t failures = for_each_failing_allocation(
      [&] { status = ot_start(manager, 1); },
      [&](std::uint64_t k, bool hit) {
        if (hit && status != 0) {
          EXPECT_TRUE(status == no_memory || status == invalid_argument) << k << " " << status;
          EXPECT_THAT(field::take_messages(),
                      testing::Contains(testing::StartsWith("OT-SERVICES-3-INIT_FAIL: ")));
        }
        if (hit) {
          stop();
          evm_create(&manager);
        }
      },
      200);
  EXPECT_GT(failures, 5U);
  EXPECT_LT(failures, 200U);
  EXPECT_EQ(status, 0);
}

TEST_F(without_memory, nothing_is_leaked_on_the_way) {
  const std::int64_t before = held_after_the_end();
  ASSERT_EQ(start(), 0);
  field::interface_added("Gi1");
  const auto ignore = [](std::uint64_t, int) {};
  fail_each([] { return object_tracking_set_create_track_delay("new", 1, 1, true); }, ignore);
  fail_each([] { return object_tracking_type_interface_create("Gi9", "new"); }, ignore);
  fail_each([] { return object_tracking_type_interface_create("Gi8", "kept2"); }, ignore);
  fail_each([] { return object_tracking_track_delete("kept2"); }, ignore);
  EXPECT_EQ(held_after_the_end(), before);
}

}  // namespace
}  // namespace ot::test
