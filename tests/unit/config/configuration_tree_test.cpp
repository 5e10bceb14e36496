// The tables of the configuration tree, row for row.
#include "config/configuration_tree.h"

#include <gtest/gtest.h>

#include <array>
#include <span>

#include "config/delays.h"
#include "config/lifecycle.h"
#include "config/verifiers.h"
#include "lists/configuration.h"
#include "lists/threshold_list.h"
#include "platform/status.h"
#include "sources/bfd/track.h"
#include "sources/interface/track.h"
#include "sources/probe/track.h"
#include "sources/route/track.h"

namespace ot {
namespace {

struct node_row {
  const char* name;
  std::uint32_t kind;
  std::int32_t child;
  std::int32_t sibling;
  std::int32_t handler;
};

constexpr std::array<node_row, 39> expected_nodes = {{
    {"track", 1, 1, -1, -1},
    {nullptr, 2, 2, -1, -1},
    {"a", 1, -1, 3, 0},
    {"delay_up", 1, -1, 4, 1},
    {"delay_down", 1, -1, 5, 2},
    {"type", 1, 6, -1, -1},
    {"list", 1, 11, 7, -1},
    {"interface", 1, 20, 8, -1},
    {"route", 1, 24, 9, -1},
    {"prb", 1, 29, 10, -1},
    {"bfdprb", 1, 31, -1, -1},
    {nullptr, 7, 12, -1, -1},
    {"a", 1, -1, 13, 3},
    {"object", 1, 15, 14, -1},
    {"thld_limits", 1, 17, -1, -1},
    {nullptr, 2, 16, -1, -1},
    {"a", 1, -1, -1, 4},
    {"val_up", 1, 18, -1, -1},
    {nullptr, 7, 19, -1, -1},
    {"val_dn", 1, -1, -1, 5},
    {nullptr, 7, 21, -1, -1},
    {"a", 1, -1, 22, 6},
    {"info", 1, 23, -1, -1},
    {"interface", 1, -1, -1, 7},
    {nullptr, 7, 25, -1, -1},
    {"a", 1, -1, 26, 8},
    {"info", 1, 27, -1, -1},
    {"ip_address", 1, -1, 28, 9},
    {"vrf", 1, -1, -1, 10},
    {nullptr, 7, 30, -1, -1},
    {"op_id", 1, -1, -1, 11},
    {nullptr, 7, 32, -1, -1},
    {"rate", 1, 33, -1, -1},
    {nullptr, 7, 34, -1, -1},
    {"debounce_count", 1, 35, -1, -1},
    {nullptr, 7, 36, -1, -1},
    {"Interface", 1, 37, -1, -1},
    {nullptr, 2, 38, -1, -1},
    {"destaddress", 1, -1, -1, 12},
}};

// The tree of the service's own kinds.
class tree_of_all_kinds : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(make_configuration_tree(tree_), 0);
    nodes = tree_.nodes();
    leaves = tree_.leaves();
  }

  std::span<const ledger_tree_node> nodes;
  std::span<const ledger_registration> leaves;

 private:
  configuration_tree tree_;
};

TEST_F(tree_of_all_kinds, has_these_39_nodes) {
  ASSERT_EQ(nodes.size(), expected_nodes.size());
  for (std::size_t i = 0; i < expected_nodes.size(); ++i) {
    const node_row& row = expected_nodes[i];
    const ledger_tree_node& node = nodes[i];
    EXPECT_STREQ(node.name, row.name) << i;
    EXPECT_EQ(static_cast<std::uint32_t>(node.kind), row.kind) << i;
    EXPECT_EQ(node.first_child, row.child) << i;
    EXPECT_EQ(node.next_sibling, row.sibling) << i;
    EXPECT_EQ(node.handler, row.handler) << i;
    EXPECT_EQ(node.has_children, row.child == -1 ? 0U : 1U) << i;
  }
}

TEST_F(tree_of_all_kinds, its_rows_carry_these_flags) {
  const std::array<std::uint32_t, 13> flags = {1, 1, 1, 1, 1, 1, 1, 3, 1, 5, 3, 1, 5};
  ASSERT_EQ(leaves.size(), flags.size());
  for (std::size_t i = 0; i < flags.size(); ++i) {
    EXPECT_EQ(leaves[i].flags, flags[i]) << i;
  }
  EXPECT_STREQ(configuration_root, "/cfg/gl/object_tracking/");
}

TEST_F(tree_of_all_kinds, its_rows_have_these_functions) {
  struct functions {
    std::size_t row;
    ledger_verify_fn verify;
    ledger_apply_fn apply;
  };
  for (const functions& expected : {
           functions{0, object_tracking_track_verify, object_tracking_track_apply},
           functions{1, object_tracking_default_verify, object_tracking_delay_up_apply},
           functions{2, object_tracking_default_verify, object_tracking_delay_down_apply},
           functions{3, object_tracking_type_verify, ledger_nothing_to_apply},
           functions{4, object_tracking_type_list_object_verify,
                     object_tracking_type_list_object_apply},
           functions{5, object_tracking_type_threshold_object_limits_verify,
                     object_tracking_type_threshold_object_crt_apply},
           functions{6, object_tracking_type_verify, ledger_nothing_to_apply},
           functions{7, object_tracking_type_interface_verify,
                     object_tracking_type_interface_apply},
           functions{8, object_tracking_type_verify, ledger_nothing_to_apply},
           functions{9, object_tracking_verify_ip_mask_and_type,
                     object_tracking_type_route_ip_apply},
           functions{10, object_tracking_default_verify, object_tracking_type_route_vrf_apply},
           functions{11, object_tracking_prb_verify, object_tracking_type_prb_apply},
           functions{12, object_tracking_type_bfdprb_verify, object_tracking_type_bfdprb_apply},
       }) {
    EXPECT_EQ(leaves[expected.row].verify, expected.verify) << expected.row;
    EXPECT_EQ(leaves[expected.row].apply, expected.apply) << expected.row;
  }
}

TEST_F(tree_of_all_kinds, its_rows_have_these_paths) {
  const std::array<const char*, 13> paths = {
      "track/*/a",
      "track/*/delay_up",
      "track/*/delay_down",
      "track/*/type/list/#1/a",
      "track/*/type/list/#1/object/*/a",
      "track/*/type/list/#1/thld_limits/val_up/#/val_dn",
      "track/*/type/interface/#1/a",
      "track/*/type/interface/#1/info/interface",
      "track/*/type/route/#1/a",
      "track/*/type/route/#1/info/ip_address",
      "track/*/type/route/#1/info/vrf",
      "track/*/type/prb/#1/op_id",
      "track/*/type/bfdprb/#1/rate/#/debounce_count/#/Interface/*63/destaddress"};
  ASSERT_EQ(leaves.size(), paths.size());
  for (std::size_t i = 0; i < paths.size(); ++i) {
    EXPECT_STREQ(leaves[i].path, paths[i]);
  }
}

TEST(configuration_tree, refuses_what_it_cannot_hold) {
  const ledger_registration one[] = {{"a", ledger_row_handled, nullptr, nullptr}};
  configuration_tree tree;
  for (std::size_t i = 0; i < configuration_tree::most_leaves; ++i) {
    ASSERT_EQ(tree.add(one), 0);
  }
  EXPECT_EQ(tree.add(one), invalid_argument);
  EXPECT_EQ(tree.leaves().size(), configuration_tree::most_leaves);

  tree.clear();
  const ledger_registration deep[] = {
      {"1/2/3/4/5/6/7/8/9/10/11/12/13/14/15/16/17/18/19/20/21/22/23/24/25/26/27/28/29/30/31/32/33/"
       "34/35/36/37/38/39/40/41/42/43/44/45/46/47/48/49/50/51/52/53/54/55/56/57/58/59/60/61/62/63/"
       "64/65/66/67/68/69/70/71/72/73/74/75/76/77/78/79/80/81/82/83/84/85/86/87/88/89/90/91/92/93/"
       "94/95/96/97",
       ledger_row_handled, nullptr, nullptr}};
  ASSERT_EQ(tree.add(deep), 0);
  EXPECT_EQ(tree.make_nodes(), invalid_argument);

  tree.clear();
  const ledger_registration wide[] = {
      {"an-element-of-32-characters-12345", ledger_row_handled, nullptr, nullptr}};
  ASSERT_EQ(tree.add(wide), 0);
  EXPECT_EQ(tree.make_nodes(), invalid_argument);
}

}  // namespace
}  // namespace ot
