// Commits of several stages: verifiers of a later stage see the tracks that the stages before lead
// to, and see them as they are when the commit is over.
#include "platform/component_status.h"
#include "platform/memory/controls.h"
#include "sources/probe/table.h"
#include "tests/unit/service_fixture.h"

namespace ot::test {
namespace {

using items = std::vector<ledger_proposal>;

class stages : public running_service {
 protected:
  static items in_stage(std::uint32_t stage, items all) {
    for (ledger_proposal& item : all) {
      item.stage = stage;
    }
    return all;
  }
  static items probe_track(const std::string& name, std::uint32_t operation) {
    return {set_number(track_path(name, "a"), 1),
            set_number(track_path(name, "type/prb/0x5/op_id"), operation)};
  }
  static items existence_removed(const std::string& name) {
    return {remove_item(track_path(name, "a"))};
  }
  int commit_all(std::initializer_list<items> parts) {
    items all;
    for (const items& part : parts) {
      all.insert(all.end(), part.begin(), part.end());
    }
    return commit(all);
  }
  void fill(unsigned count) {
    for (unsigned i = 0; i < count; ++i) {
      const std::string name = "f" + std::to_string(i);
      ASSERT_EQ(commit({set_number(track_path(name, "a"), 1),
                        set_number(track_path(name, "delay_up"), 1)}),
                0);
    }
  }
};

TEST_F(stages, a_track_changes_its_kind) {
  field::interface_added("Gi1");
  field::probe_result(7, 1);
  ASSERT_EQ(commit(interface_track("t", "Gi1")), 0);
  EXPECT_EQ(commit(probe_track("t", 7)), track_type_conflict);
  ASSERT_EQ(commit_all({existence_removed("t"), in_stage(1, probe_track("t", 7))}), 0);
  EXPECT_EQ(track("t").type, track_type::probe);
  EXPECT_EQ(track("t").configured_type, 5U);
}

TEST_F(stages, a_type_that_a_stage_gives_counts_in_the_next) {
  EXPECT_EQ(commit_all({interface_track("t", "Gi1"),
                        in_stage(1, {set_number(track_path("t", "type/route/0x2/a"), 1)})}),
            track_type_conflict);
  EXPECT_EQ(hash_db_get_track_item("t"), nullptr);
  EXPECT_EQ(commit({set_number(track_path("t", "type/route/0x2/a"), 1)}), 0) << "nothing is left";
}

TEST_F(stages, the_limit_of_tracks_counts_what_comes_and_goes) {
  fill(1499);
  const items last = {set_number(track_path("x", "a"), 1),
                      set_number(track_path("x", "delay_up"), 1)};
  const items more = {set_number(track_path("y", "a"), 1),
                      set_number(track_path("y", "delay_up"), 1)};
  EXPECT_EQ(commit_all({last, in_stage(1, more)}), too_many_tracks);
  EXPECT_EQ(hash_db_count(tracks_table), 1499U);
  ASSERT_EQ(commit(last), 0);
  EXPECT_EQ(commit(more), too_many_tracks);
  EXPECT_EQ(commit_all({existence_removed("x"), in_stage(1, more)}), 0);
  EXPECT_EQ(hash_db_count(tracks_table), 1500U);
  EXPECT_EQ(commit_all({existence_removed("y"), in_stage(1, more), in_stage(2, last)}),
            too_many_tracks);
  EXPECT_NE(hash_db_get_track_item("y"), nullptr);
}

TEST_F(stages, probes_exchange_their_operations) {
  ASSERT_EQ(commit(probe_track("a", 1)), 0);
  ASSERT_EQ(commit(probe_track("b", 2)), 0);
  EXPECT_EQ(commit_all({existence_removed("a"), in_stage(1, probe_track("a", 2))}),
            probe_operation_taken);
  EXPECT_EQ(commit_all({existence_removed("a"), existence_removed("b"),
                        in_stage(1, probe_track("a", 2)), in_stage(2, probe_track("b", 2))}),
            probe_operation_taken);
  EXPECT_EQ(track("a").object.probe.operation_id, 1U);
  ASSERT_EQ(commit_all({existence_removed("a"), existence_removed("b"),
                        in_stage(1, probe_track("a", 2)), in_stage(2, probe_track("b", 1))}),
            0);
  EXPECT_EQ(track("a").object.probe.operation_id, 2U);
  EXPECT_EQ(track("b").object.probe.operation_id, 1U);
}

TEST_F(stages, an_operation_that_a_track_gives_up_is_free_in_the_next) {
  ASSERT_EQ(commit(probe_track("a", 1)), 0);
  EXPECT_EQ(commit_all({{remove_item(track_path("a", "type/prb/0x5/op_id"))},
                        in_stage(1, probe_track("b", 1))}),
            0);
  EXPECT_EQ(track("b").object.probe.operation_id, 1U);
  EXPECT_EQ(track("a").type, track_type::none);
}

}  // namespace
}  // namespace ot::test
