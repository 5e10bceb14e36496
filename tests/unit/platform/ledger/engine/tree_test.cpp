// Matching paths against registered trees.
#include "platform/ledger/engine/tree.h"

#include <gtest/gtest.h>

#include "platform/ledger/item.h"
#include "platform/ledger_status.h"

namespace ot {
namespace {

constexpr ledger_tree_node nodes[] = {
    {"track", ledger_node_kind::literal, 1, -1, -1, 1},
    {nullptr, ledger_node_kind::name, 2, -1, -1, 1},
    {"a", ledger_node_kind::literal, -1, 3, 0, 0},
    {"type", ledger_node_kind::literal, 4, -1, -1, 1},
    {nullptr, ledger_node_kind::number, 5, -1, -1, 1},
    {nullptr, ledger_node_kind::name, 6, -1, -1, 1},
    {"end", ledger_node_kind::literal, -1, -1, 1, 0},
};
constexpr ledger_registration rows[] = {{"track/<name>/a", 1, nullptr, nullptr},
                                        {"track/<name>/type/<n>/<name>/end", 5, nullptr, nullptr}};

class ledger_tree : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(trees_.add("/cfg/gl/x/", nodes, rows), 0); }
  ledger_trees trees_;
  ledger_match match_;
  std::string fault_;
};

TEST_F(ledger_tree, wildcards_become_fields) {
  ASSERT_EQ(trees_.match("/cfg/gl/x/track/up/type/0x1f/eth0/end", match_, fault_), 0);
  EXPECT_EQ(match_.row, &rows[1]);
  ASSERT_EQ(match_.fields.size(), 3U);
  EXPECT_STREQ(match_.fields[0].text, "up");
  EXPECT_STREQ(match_.fields[1].text, "0x1f");
  EXPECT_EQ(match_.fields[1].number, 0x1fU);
  EXPECT_STREQ(match_.fields[2].text, "eth0");
}

TEST_F(ledger_tree, fields_survive_a_move) {
  ASSERT_EQ(trees_.match("/cfg/gl/x/track/t/a", match_, fault_), 0);
  const ledger_match moved = std::move(match_);
  ASSERT_EQ(moved.fields.size(), 1U);
  EXPECT_STREQ(moved.fields[0].text, "t");
}

TEST_F(ledger_tree, other_paths_are_unknown) {
  for (const char* path :
       {"/cfg/gl/x/track", "/cfg/gl/x/track/t", "/cfg/gl/x/track/t/b", "/cfg/gl/x/track/t/a/a",
        "/cfg/gl/x/track//a", "/cfg/gl/x/", "/cfg/gl/y/track/t/a", "/oper/gl/x/track/t/a",
        "/cfg/gl/x/track/t/type/0x1/eth0"}) {
    EXPECT_EQ(trees_.match(path, match_, fault_), ledger_unknown_path) << path;
  }
}

TEST_F(ledger_tree, a_number_has_one_spelling) {
  const auto status = [this](const char* number) {
    return trees_.match(std::string{"/cfg/gl/x/track/t/type/"} + number + "/i/end", match_, fault_);
  };
  for (const char* good : {"0x0", "0x2", "0xff", "0xffffffff"}) {
    EXPECT_EQ(status(good), 0) << good;
  }
  for (const char* bad :
       {"2", "0x", "0x02", "0xFF", "0X2", "0x1g", "0x100000000", "0x-1", "0x+1"}) {
    EXPECT_EQ(status(bad), ledger_unknown_path) << bad;
  }
}

TEST_F(ledger_tree, roots_may_not_overlap) {
  EXPECT_EQ(trees_.add("/cfg/gl/x/", nodes, rows), duplicate_key);
  EXPECT_EQ(trees_.add("/cfg/gl/", nodes, rows), duplicate_key);
  EXPECT_EQ(trees_.add("/cfg/gl/x/track/", nodes, rows), duplicate_key);
  EXPECT_EQ(trees_.add("/cfg/gl/z", nodes, rows), invalid_argument);
  EXPECT_EQ(trees_.add("/oper/gl/z/", nodes, rows), invalid_argument);
}

TEST_F(ledger_tree, tables_that_do_not_fit_together_are_refused) {
  ledger_trees trees;
  const auto refused = [&trees](ledger_tree_node node) {
    return trees.add("/cfg/q/", {&node, 1}, rows) == invalid_argument;
  };
  EXPECT_EQ(trees.add("/cfg/q/", {}, rows), invalid_argument);
  EXPECT_TRUE(refused({"x", ledger_node_kind::literal, 1, -1, -1, 1}));   // no such child
  EXPECT_TRUE(refused({"x", ledger_node_kind::literal, 0, -1, -1, 1}));   // its own child
  EXPECT_TRUE(refused({"x", ledger_node_kind::literal, -1, -1, 2, 0}));   // no such row
  EXPECT_TRUE(refused({"x", ledger_node_kind::literal, -1, -1, -1, 0}));  // a leaf without row
  EXPECT_TRUE(refused({"x", ledger_node_kind::literal, -1, -1, 0, 1}));   // wrong has_children
  EXPECT_TRUE(refused({nullptr, ledger_node_kind::literal, -1, -1, 0, 0}));
  EXPECT_TRUE(refused({"x", ledger_node_kind::name, -1, -1, 0, 0}));
}

TEST(ledger_builtin_tree, keeps_the_tracks_that_interfaces_follow) {
  ledger_trees trees;
  ledger_match match;
  std::string fault;
  ASSERT_EQ(ledger_add_builtin_trees(trees), 0);
  ASSERT_EQ(trees.match("/cfg/if/act/eth0/service-vrrp/track_name", match, fault), 0);
  EXPECT_EQ(ledger_row_kind(*match.row), ledger_kind::text);
}

TEST(ledger_value, faults_are_named) {
  const std::byte bytes[ledger_value_max + 4] = {};
  const auto fault = [&bytes](ledger_kind kind, std::size_t length) {
    return ledger_value_fault(kind, {bytes, length}) != nullptr;
  };
  EXPECT_FALSE(fault(ledger_kind::u32, 4));
  EXPECT_TRUE(fault(ledger_kind::u32, 3));
  EXPECT_FALSE(fault(ledger_kind::tuple, 8));
  EXPECT_TRUE(fault(ledger_kind::tuple, 7));
  EXPECT_TRUE(fault(ledger_kind::tuple, 0));
  EXPECT_TRUE(fault(ledger_kind::tuple, ledger_value_max + 4));
  EXPECT_FALSE(fault(ledger_kind::text, 0));
  EXPECT_TRUE(fault(ledger_kind::text, 1));  // a zero byte
  EXPECT_TRUE(fault(static_cast<ledger_kind>(9), 4));
}

}  // namespace
}  // namespace ot
