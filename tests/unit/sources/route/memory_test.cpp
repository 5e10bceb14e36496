// Route tracks while each allocation fails in turn: code 12, nothing half tied, nothing leaked.
#include "platform/memory/ledger_controls.h"
#include "sources/route/track.h"
#include "tests/unit/failing_runs.h"
#include "tests/unit/sources/route/fixture.h"

namespace ot::test {
namespace {

class route_memory : public route_service {
 protected:
  void SetUp() override {
    route_service::SetUp();
    field::route_added(net, 16, "eth0");
  }
  void begin_again() {
    stop();
    ASSERT_EQ(start(), 0);
  }
  // The results of the failing runs, each on a service without tracks but what `prepare` makes.
  template <typename Prepare, typename Operation>
  std::vector<int> results_of(Prepare prepare, Operation operation) {
    return failing_results(
        [&] {
          begin_again();
          prepare();
        },
        operation,
        [](std::uint64_t, int status) {
          if (status != 0) {
            EXPECT_EQ(followers(entry()), text_lines{});
          }
        });
  }
  std::int64_t held_after_the_end() {
    stop();
    field::reset();
    ledger_control_reset();
    return count_live_allocations().count;
  }
};

TEST_F(route_memory, a_new_track_is_refused_with_12_or_made) {
  const std::vector<int> results = results_of([] {}, [] { return create("t"); });
  // Context, leaf, the track's entry, the node, the route's entry; then only the notification.
  ASSERT_GE(results.size(), 5U);
  for (std::size_t k = 0; k < results.size(); ++k) {
    EXPECT_EQ(results[k], k < 5 ? no_memory : 0) << k;
  }
  EXPECT_EQ(followers(entry()), text_lines{"t"});
}

TEST_F(route_memory, a_present_track_is_refused_with_12_or_tied) {
  const std::vector<int> results =
      results_of([] { ASSERT_EQ(create_vrf_only("t", "default"), 0); }, [] { return create("t"); });
  ASSERT_GE(results.size(), 2U);
  for (std::size_t k = 0; k < results.size(); ++k) {
    EXPECT_EQ(results[k], k < 2 ? no_memory : 0) << k;
  }
  EXPECT_EQ(followers(entry()), text_lines{"t"});
}

TEST_F(route_memory, a_tie_without_memory_is_traced) {
  const std::string who = "(object_tracking_type_route_create) : ";
  ASSERT_EQ(create_vrf_only("t", "default"), 0);
  const text_lines traced[] = {
      {who + "malloc failed "},
      {"(insert_track_to_route_entry) : hash_db_add_new_item failed - no memory to add item - "
       "Cannot allocate memory",
       who + "insert_track_to_route_entry failed - Cannot allocate memory"}};
  for (std::uint64_t k = 0; k < 2; ++k) {
    trace();
    {
      alloc_faults faults{k};
      EXPECT_EQ(create("t"), no_memory) << k;
    }
    EXPECT_THAT(field::take_traces(), contains_in_order(traced[k])) << k;
  }
}

TEST_F(route_memory, an_item_that_cannot_wait_is_refused_with_12) {
  alloc_faults faults{0};
  EXPECT_EQ(queue_pending_route("t", nullptr, ip(net), ipv4_prefixlen2mask(16), true), no_memory);
  EXPECT_EQ(pending_route_count(), 0U);
}

TEST_F(route_memory, the_route_table_is_refused_with_12) {
  stop();
  alloc_faults faults{0};
  EXPECT_EQ(ipv4_route_table_create(), no_memory);
}

TEST_F(route_memory, nothing_is_leaked_on_the_way) {
  const std::int64_t before = held_after_the_end();
  ASSERT_EQ(start(), 0);
  results_of([] {}, [] { return create("t", "red"); });
  results_of([] { ASSERT_EQ(create("a"), 0); }, [] { return create_vrf_only("a", "red"); });
  EXPECT_EQ(queue_pending_route("late", "red", 0, 0, false), 0);
  EXPECT_EQ(held_after_the_end(), before);
}

}  // namespace
}  // namespace ot::test
