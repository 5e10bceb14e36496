// From a path of the configuration to its handler, through commits.
#include <array>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "config/configuration_tree.h"
#include "platform/ledger_status.h"
#include "platform/memory/ledger_controls.h"
#include "tests/unit/service_fixture.h"

namespace ot::test {
namespace {

using testing::ElementsAre;

// The tree is registered with handlers that write down that they were called, so that the way is
// seen whatever the row's own functions do.

std::vector<std::string> calls;

template <std::size_t Row>
std::string call_text(const char* what, const ledger_change& change) {
  std::string text = what + std::to_string(Row);
  for (const ledger_path_field& field : change.fields) {
    text += std::string{" "} + field.text;
  }
  return text;
}

template <std::size_t Row>
ledger_registration recording_row(std::span<const ledger_registration> leaves) {
  return {leaves[Row].path, leaves[Row].flags,
          [](const ledger_change& change, ledger_verdict&) {
            calls.push_back(call_text<Row>("verify ", change));
            return 0;
          },
          [](const ledger_change& change) {
            calls.push_back(call_text<Row>("apply ", change));
            return 0;
          }};
}

template <std::size_t... Row>
std::array<ledger_registration, sizeof...(Row)> recording_rows(
    std::span<const ledger_registration> leaves, std::index_sequence<Row...>) {
  return {recording_row<Row>(leaves)...};
}

class path_to_handler : public service_fixture {
 protected:
  void SetUp() override {
    calls.clear();
    ASSERT_EQ(make_configuration_tree(tree), 0);
    rows = recording_rows(tree.leaves(), std::make_index_sequence<13>());
    ASSERT_EQ(ledger_config_register(configuration_root, tree.nodes(), rows), 0);
  }
  configuration_tree tree;
  std::array<ledger_registration, 13> rows{};
};

struct leaf_row {
  ledger_proposal proposal;
  std::string fields;
};

std::vector<leaf_row> every_leaf() {
  const auto path = [](const char* item) { return track_path("t-1", item); };
  return {
      {set_number(path("a"), 1), "t-1"},
      {set_number(path("delay_up"), 1), "t-1"},
      {set_number(path("delay_down"), 1), "t-1"},
      {set_number(path("type/list/0x3/a"), 1), "t-1 0x3"},
      {set_number(path("type/list/0x7/object/m/a"), 1), "t-1 0x7 m"},
      {set_number(path("type/list/0x8/thld_limits/val_up/0x50/val_dn"), 1), "t-1 0x8 0x50"},
      {set_number(path("type/interface/0x1/a"), 1), "t-1 0x1"},
      {set_text(path("type/interface/0x1/info/interface"), "Gi1"), "t-1 0x1"},
      {set_number(path("type/route/0x2/a"), 1), "t-1 0x2"},
      {set_tuple(path("type/route/0x2/info/ip_address"), {1, 2}), "t-1 0x2"},
      {set_text(path("type/route/0x2/info/vrf"), "red"), "t-1 0x2"},
      {set_number(path("type/prb/0x5/op_id"), 1), "t-1 0x5"},
      {set_tuple(path("type/bfdprb/0x9/rate/0x32/debounce_count/0x3/Interface/Gi1/destaddress"),
                 {1}),
       "t-1 0x9 0x32 0x3 Gi1"},
  };
}

TEST_F(path_to_handler, every_leaf_reaches_its_own_row_with_its_wildcards) {
  const std::vector<leaf_row> leaves = every_leaf();
  ASSERT_EQ(leaves.size(), rows.size());
  for (std::size_t row = 0; row < leaves.size(); ++row) {
    calls.clear();
    EXPECT_EQ(commit({leaves[row].proposal}), 0) << leaves[row].proposal.path;
    const std::string call = std::to_string(row) + " " + leaves[row].fields;
    EXPECT_THAT(calls, ElementsAre("verify " + call, "apply " + call));
  }
}

TEST_F(path_to_handler, every_leaf_refuses_another_kind_of_value) {
  for (leaf_row& leaf : every_leaf()) {
    leaf.proposal.kind =
        leaf.proposal.kind == ledger_kind::text ? ledger_kind::u32 : ledger_kind::text;
    EXPECT_EQ(commit({leaf.proposal}), ledger_wrong_kind) << leaf.proposal.path;
  }
  EXPECT_TRUE(calls.empty());
}

TEST_F(path_to_handler, unknown_paths_are_refused_by_name) {
  for (const char* item : {
           "b",
           "A",
           "a/b",
           "delay",
           "type",
           "type/list/0x3",
           "type/list/3/a",
           "type/list/a/a",
           "type/list/0x3/object/a",
           "type/list/0x7/thld_limits/val_up/0x50/val_up",
           "type/interface/0x1/interface",
           "type/interface/a",
           "type/route/0x2/info/interface",
           "type/prb/0x5/a",
           "type/bfdprb/0x9/a",
           "type/bfdprb/0x9/rate/0x32/debounce_count/0x3/interface/Gi1/destaddress",
           "type/sla/0x5/op_id",
       }) {
    EXPECT_EQ(commit({set_number(track_path("t", item), 1)}), ledger_unknown_path) << item;
    ASSERT_EQ(refusals.size(), 1U);
    EXPECT_EQ(refusals[0].path, track_path("t", item));
  }
  EXPECT_EQ(commit({set_number("/cfg/gl/object_tracking/track", 1)}), ledger_unknown_path);
  EXPECT_EQ(commit({set_number("/cfg/gl/object_tracking/tracks/t/a", 1)}), ledger_unknown_path);
  EXPECT_TRUE(calls.empty());
}

// --- The running service -------------------------------------------------------------------------

class registered_tree : public running_service {};

TEST_F(registered_tree, cannot_be_registered_twice) {
  EXPECT_EQ(ot_configuration_register(), duplicate_key);
}

TEST_F(registered_tree, a_type_item_alone_is_stored_and_makes_no_track) {
  for (const char* item : {"a", "type/list/0x3/a", "type/interface/0x1/a", "type/route/0x2/a"}) {
    EXPECT_EQ(commit({set_number(track_path("t", item), 1)}), 0) << item;
    ledger_value value;
    EXPECT_EQ(ledger_control_peek(track_path("t", item), value), 0) << item;
  }
  EXPECT_EQ(hash_db_count(tracks_table), 0U);
}

TEST_F(registered_tree, a_replay_that_cannot_read_the_store_is_a_failure) {
  // A tree may not replay while it is being changed.
  static int status_inside = 0;
  const ledger_registration row = {"thing", 1,
                                   [](const ledger_change&, ledger_verdict&) {
                                     status_inside = ot_configuration_replay();
                                     return 0;
                                   },
                                   ledger_nothing_to_apply};
  const ledger_tree_node node = {"thing", ledger_node_kind::literal, -1, -1, 0, 0};
  ASSERT_EQ(ledger_config_register("/cfg/gl/other/", {&node, 1}, {&row, 1}), 0);
  EXPECT_EQ(commit({set_number("/cfg/gl/other/thing", 1)}), 0);
  EXPECT_EQ(status_inside, ledger_storage_failure);
}

}  // namespace
}  // namespace ot::test
