// The tables of the configuration tree, row for row.
#include "config/configuration_tree.h"

#include <gtest/gtest.h>

#include <array>

#include "config/delays.h"
#include "config/lifecycle.h"
#include "config/verifiers.h"
#include "sources/interface/config.h"
#include "sources/probe/config.h"
#include "sources/route/config.h"

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

TEST(configuration_tree, has_these_39_nodes) {
  ASSERT_EQ(configuration_nodes.size(), expected_nodes.size());
  for (std::size_t i = 0; i < expected_nodes.size(); ++i) {
    const node_row& row = expected_nodes[i];
    const ledger_tree_node& node = configuration_nodes[i];
    EXPECT_STREQ(node.name, row.name) << i;
    EXPECT_EQ(static_cast<std::uint32_t>(node.kind), row.kind) << i;
    EXPECT_EQ(node.first_child, row.child) << i;
    EXPECT_EQ(node.next_sibling, row.sibling) << i;
    EXPECT_EQ(node.handler, row.handler) << i;
    EXPECT_EQ(node.has_children, row.child == -1 ? 0U : 1U) << i;
  }
}

TEST(configuration_tree, its_rows_carry_these_flags) {
  const std::array<std::uint32_t, 13> flags = {1, 1, 1, 1, 1, 1, 1, 3, 1, 5, 3, 1, 5};
  ASSERT_EQ(configuration_handlers.size(), flags.size());
  for (std::size_t i = 0; i < flags.size(); ++i) {
    EXPECT_EQ(configuration_handlers[i].flags, flags[i]) << i;
  }
  EXPECT_STREQ(configuration_root, "/cfg/gl/object_tracking/");
}

TEST(configuration_tree, its_rows_have_these_functions) {
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
           functions{6, object_tracking_type_verify, ledger_nothing_to_apply},
           functions{7, object_tracking_type_interface_verify,
                     object_tracking_type_interface_apply},
           functions{8, object_tracking_type_verify, ledger_nothing_to_apply},
           functions{9, object_tracking_verify_ip_mask_and_type,
                     object_tracking_type_route_ip_apply},
           functions{10, object_tracking_default_verify, object_tracking_type_route_vrf_apply},
           functions{11, object_tracking_prb_verify, object_tracking_type_prb_apply},
       }) {
    EXPECT_EQ(configuration_handlers[expected.row].verify, expected.verify) << expected.row;
    EXPECT_EQ(configuration_handlers[expected.row].apply, expected.apply) << expected.row;
  }
  EXPECT_EQ(configuration_handlers[4].verify, object_tracking_type_list_object_verify);
}

}  // namespace
}  // namespace ot
