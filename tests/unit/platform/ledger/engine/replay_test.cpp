// The replay of what is stored: below its own root, and past what cannot be applied.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "platform/ledger_commit.h"
#include "platform/ledger_config.h"
#include "platform/memory/ledger_controls.h"
#include "platform/status.h"
#include "tests/support/ledger_proposals.h"
#include "tests/support/sample_tree.h"

namespace ot::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* other_root = "/cfg/gl/other/";
constexpr const char* other_item = "/cfg/gl/other/a";

unsigned others_applied = 0;

int accept_other(const ledger_change& /*change*/, ledger_verdict& verdict) {
  verdict.accept = 1;
  return status_ok;
}
int apply_other(const ledger_change& /*change*/) {
  ++others_applied;
  return status_ok;
}

constexpr ledger_tree_node other_nodes[] = {{"a", ledger_node_kind::literal, -1, -1, 0, 0}};
constexpr ledger_registration other_rows[] = {{"a", ledger_row_handled, accept_other, apply_other}};

class ledger_replay : public testing::Test {
 protected:
  void SetUp() override {
    ledger_control_reset();
    register_trees();
  }
  void TearDown() override { ledger_control_reset(); }

  static void register_trees() {
    ASSERT_EQ(register_sample_tree(), 0);
    ASSERT_EQ(ledger_config_register(other_root, other_nodes, other_rows), 0);
    others_applied = 0;
  }
  static std::string item(const std::string& name) { return "/cfg/gl/sample/thing/" + name + "/a"; }
  // Stores items as commits, then starts the ledger's process anew.
  static void store(const std::vector<ledger_proposal>& items) {
    for (const ledger_proposal& one : items) {
      ASSERT_EQ(ledger_commit(ledger_get_default_conn(), {&one, 1}, nullptr), 0) << one.path;
    }
    ledger_control_restart();
    register_trees();
    ledger_control_take_log();
  }
};

TEST_F(ledger_replay, applies_what_is_below_its_root_and_nothing_else) {
  store({set_number(item("x"), 1), set_number(other_item, 2), set_number(item("y"), 3)});
  EXPECT_EQ(ledger_config_replay(sample_root), 0);
  EXPECT_THAT(sample().applied, ElementsAre("1 x ->1", "1 y ->3"));
  EXPECT_EQ(others_applied, 0U);
  sample().applied.clear();
  EXPECT_EQ(ledger_config_replay(other_root), 0);
  EXPECT_EQ(others_applied, 1U);
  EXPECT_THAT(sample().applied, IsEmpty());
}

TEST_F(ledger_replay, of_a_root_without_items_does_nothing) {
  store({set_number(item("x"), 1)});
  EXPECT_EQ(ledger_config_replay(other_root), 0);
  EXPECT_EQ(ledger_config_replay("/cfg/gl/nobody/"), 0);
  EXPECT_THAT(sample().applied, IsEmpty());
  EXPECT_EQ(others_applied, 0U);
}

TEST_F(ledger_replay, counts_one_failing_item_and_fails_nothing_else) {
  store({set_number(item("before"), 1), set_number(item("bad"), 2), set_number(item("after"), 3)});
  sample().fail_apply["bad"] = no_memory;
  EXPECT_EQ(ledger_config_replay(sample_root), 1);
  EXPECT_THAT(sample().applied, ElementsAre("1 before ->1", "1 bad ->2", "1 after ->3"));
  EXPECT_THAT(sample().verified, IsEmpty()) << "what is stored was verified once";
  EXPECT_THAT(ledger_control_take_log(), ElementsAre(HasSubstr(item("bad"))));
  for (const char* name : {"before", "bad", "after"}) {
    ledger_value value;
    EXPECT_EQ(ledger_control_peek(item(name), value), 0) << name;
  }
  // The ledger goes on taking commits.
  const ledger_proposal next = set_number(item("next"), 4);
  EXPECT_EQ(ledger_commit(ledger_get_default_conn(), {&next, 1}, nullptr), 0);
}

TEST_F(ledger_replay, goes_past_an_item_that_no_tree_knows) {
  const auto number = bytes_of_numbers({1});
  ledger_control_put("/cfg/gl/sample/nothing/x", ledger_kind::u32, number);
  store({set_number(item("x"), 1)});
  EXPECT_EQ(ledger_config_replay(sample_root), 1);
  EXPECT_THAT(sample().applied, ElementsAre("1 x ->1"));
  EXPECT_THAT(ledger_control_take_log(), Contains(HasSubstr("/cfg/gl/sample/nothing/x")));
}

}  // namespace
}  // namespace ot::test
