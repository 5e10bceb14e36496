// Commits: checked, decided, verified, stored and applied; and the replay of what was stored.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/component_status.h"
#include "platform/ledger_commit.h"
#include "platform/ledger_status.h"
#include "tests/contract/ledger_fixture.h"
#include "tests/support/ledger_proposals.h"
#include "tests/support/sample_tree.h"

namespace ot::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr const char* a_of_x = "/cfg/gl/sample/thing/x/a";
constexpr const char* a_of_y = "/cfg/gl/sample/thing/y/a";
constexpr const char* text_of_x = "/cfg/gl/sample/thing/x/text";

class ledger_commit_contract : public ledger_contract {
 protected:
  void SetUp() override {
    ledger_contract::SetUp();
    ASSERT_EQ(hosted(register_sample_tree), 0);
  }
  int commit(std::vector<ledger_proposal> changes) {
    return ledger_commit(ledger_get_default_conn(), changes, &refusals_);
  }
  bool stored(const char* path) {
    return ledger_item_get(ledger_get_default_conn(), path + 1, &value_) == 0;
  }

  std::vector<ledger_refusal> refusals_;
  ledger_value value_;
};

TEST_P(ledger_commit_contract, events_follow_from_what_is_stored) {
  ASSERT_EQ(commit({set_number(a_of_x, 1)}), 0);
  ASSERT_EQ(commit({set_number(a_of_x, 1)}), 0);  // a set, whatever the value
  ASSERT_EQ(commit({set_number(a_of_x, 5)}), 0);
  ASSERT_EQ(commit({remove_item(a_of_x)}), 0);
  const auto expected = ElementsAre("1 x ->1", "2 x 1>1", "2 x 1>5", "4 x 5>-");
  EXPECT_THAT(sample().verified, expected);
  EXPECT_THAT(sample().applied, expected);
  EXPECT_FALSE(stored(a_of_x));
}

TEST_P(ledger_commit_contract, fields_and_values_of_every_kind_arrive) {
  ASSERT_EQ(commit({set_text(text_of_x, "eth0"),
                    set_tuple("/cfg/gl/sample/thing/x/kind/0x2/pair", {10, 20})}),
            0);
  EXPECT_THAT(sample().applied, ElementsAre("1 x ->eth0", "1 x 0x2=2 ->10,20"));
}

TEST_P(ledger_commit_contract, deletes_are_applied_first) {
  ASSERT_EQ(commit({set_number(a_of_x, 1)}), 0);
  sample().applied.clear();
  ASSERT_EQ(commit({set_number(a_of_y, 2), set_text(text_of_x, "t"), remove_item(a_of_x)}), 0);
  EXPECT_THAT(sample().applied, ElementsAre("4 x 1>-", "1 y ->2", "1 x ->t"));
}

TEST_P(ledger_commit_contract, a_refusal_stores_and_applies_nothing) {
  sample().refuse["y"] = too_many_tracks;
  EXPECT_EQ(commit({set_number(a_of_x, 1), set_number(a_of_y, 2)}), too_many_tracks);
  EXPECT_THAT(sample().verified, ElementsAre("1 x ->1", "1 y ->2"));
  EXPECT_THAT(sample().applied, IsEmpty());
  EXPECT_FALSE(stored(a_of_x));
  EXPECT_FALSE(stored(a_of_y));
  ASSERT_EQ(refusals_.size(), 1U);
  EXPECT_EQ(refusals_[0].path, a_of_y);
  EXPECT_EQ(refusals_[0].code, too_many_tracks);
  EXPECT_EQ(refusals_[0].text, "refused");
  EXPECT_FALSE(refusals_[0].applied);
}

TEST_P(ledger_commit_contract, every_refusal_is_reported) {
  sample().refuse["x"] = track_type_conflict;
  sample().refuse["y"] = too_many_tracks;
  EXPECT_EQ(commit({set_number(a_of_x, 1), set_number(a_of_y, 2)}), track_type_conflict);
  ASSERT_EQ(refusals_.size(), 2U);
  EXPECT_EQ(refusals_[1].code, too_many_tracks);
}

TEST_P(ledger_commit_contract, an_apply_error_does_not_undo_the_commit) {
  sample().fail_apply["x"] = no_memory;
  EXPECT_EQ(commit({set_number(a_of_x, 1), set_number(a_of_y, 2)}), no_memory);
  EXPECT_THAT(sample().applied, ElementsAre("1 x ->1", "1 y ->2"));
  EXPECT_TRUE(stored(a_of_x));
  EXPECT_TRUE(stored(a_of_y));
  ASSERT_EQ(refusals_.size(), 1U);
  EXPECT_EQ(refusals_[0].path, a_of_x);
  EXPECT_TRUE(refusals_[0].applied);
}

struct bad_change {
  ledger_proposal proposal;
  int code;
  const char* text;
};

TEST_P(ledger_commit_contract, faulty_changes_are_refused_before_any_verifier) {
  const bad_change rows[] = {
      {set_number("/cfg/gl/sample/thing/x/b", 1), ledger_unknown_path, "thing/x/b"},
      {set_number("/cfg/gl/elsewhere/a", 1), ledger_unknown_path, "elsewhere"},
      {set_number("/oper/gl/object-tracking/x", 1), ledger_unknown_path, "/oper/"},
      {set_number("", 1), ledger_unknown_path, ""},
      {set_text(a_of_x, "1"), ledger_wrong_kind, "it is a number"},
      {set_number(text_of_x, 1), ledger_wrong_kind, "it is a text"},
      {set_tuple("/cfg/gl/sample/thing/x/kind/0x2/pair", {}), ledger_wrong_kind, "whole numbers"},
      {set_text(text_of_x, std::string(5000, 'x')), ledger_wrong_kind, "too long"},
      {remove_item(a_of_x), ledger_no_data, a_of_x},
      {set_number("/cfg/gl/sample/thing/x/missing", 1), ledger_not_available, "missing"},
      {remove_item("/cfg/gl/sample/thing/x/missing"), ledger_not_available, "missing"},
  };
  for (const bad_change& row : rows) {
    EXPECT_EQ(commit({set_number(a_of_y, 1), row.proposal}), row.code) << row.proposal.path;
    ASSERT_EQ(refusals_.size(), 1U);
    EXPECT_EQ(refusals_[0].path, row.proposal.path);
    EXPECT_THAT(refusals_[0].text, HasSubstr(row.text));
  }
  EXPECT_THAT(sample().verified, IsEmpty());
  EXPECT_FALSE(stored(a_of_y));
}

TEST_P(ledger_commit_contract, a_path_stands_once_in_a_commit) {
  EXPECT_EQ(commit({set_number(a_of_x, 1), remove_item(a_of_x)}), duplicate_key);
  ASSERT_EQ(refusals_.size(), 1U);
  EXPECT_EQ(refusals_[0].path, a_of_x);
  EXPECT_FALSE(stored(a_of_x));
}

TEST_P(ledger_commit_contract, an_unhandled_leaf_is_only_kept) {
  ASSERT_EQ(commit({set_text("/cfg/gl/sample/thing/x/note", "n"),
                    set_text("/cfg/if/act/eth0/service-vrrp/track_name", "x")}),
            0);
  EXPECT_THAT(sample().applied, IsEmpty());
  ASSERT_TRUE(stored("/cfg/if/act/eth0/service-vrrp/track_name"));
  EXPECT_EQ(value_.as_text(), "x");
}

TEST_P(ledger_commit_contract, verifiers_see_the_state_before_the_commit) {
  static int seen = 0;
  sample().while_verifying = [] {
    ledger_value value;
    return seen = ledger_item_get(ledger_get_default_conn(), a_of_x + 1, &value);
  };
  ASSERT_EQ(commit({set_number(a_of_x, 1)}), 0);
  EXPECT_EQ(seen, ledger_no_data);
}

TEST_P(ledger_commit_contract, a_verifier_cannot_commit) {
  static int inner = 0;
  sample().while_verifying = [] {
    const ledger_proposal change = set_number(a_of_y, 1);
    return inner = ledger_commit(ledger_get_default_conn(), {&change, 1}, nullptr);
  };
  ASSERT_EQ(commit({set_number(a_of_x, 1)}), 0);
  EXPECT_EQ(inner, ledger_not_available);
  EXPECT_FALSE(stored(a_of_y));
}

TEST_P(ledger_commit_contract, an_empty_commit_does_nothing) {
  const std::uint64_t before = hosted(ledger_config_generation);
  EXPECT_EQ(commit({}), 0);
  EXPECT_EQ(hosted(ledger_config_generation), before);
}

TEST_P(ledger_commit_contract, the_generation_changes_with_a_commit_only) {
  const std::uint64_t before = hosted(ledger_config_generation);
  sample().refuse["y"] = too_many_tracks;
  ASSERT_NE(commit({set_number(a_of_y, 1)}), 0);
  EXPECT_EQ(hosted(ledger_config_generation), before);
  ASSERT_EQ(commit({set_number(a_of_x, 1)}), 0);
  EXPECT_NE(hosted(ledger_config_generation), before);
}

TEST_P(ledger_commit_contract, replay_is_in_the_order_of_creation) {
  ASSERT_EQ(commit({set_text(text_of_x, "t"), set_number(a_of_y, 2)}), 0);
  ASSERT_EQ(commit({set_number(a_of_x, 1)}), 0);
  ASSERT_EQ(commit({set_text(text_of_x, "u")}), 0);  // a set keeps its item's place
  ASSERT_EQ(commit({remove_item(a_of_y)}), 0);
  ASSERT_EQ(commit({set_number(a_of_y, 3)}), 0);  // a new item goes to the end
  bed_->restart();
  ASSERT_EQ(hosted(register_sample_tree), 0);
  EXPECT_THAT(sample().applied, IsEmpty());
  EXPECT_EQ(hosted([] { return ledger_config_replay(sample_root); }), 0);
  EXPECT_THAT(sample().applied, ElementsAre("1 x ->u", "1 x ->1", "1 y ->3"));
  EXPECT_THAT(sample().verified, IsEmpty());
}

TEST_P(ledger_commit_contract, replay_goes_on_after_failures) {
  std::vector<ledger_proposal> many;
  for (int i = 0; i < 200; ++i) {
    many.push_back(set_number("/cfg/gl/sample/thing/n" + std::to_string(i) + "/a", 1));
  }
  ASSERT_EQ(commit(many), 0);
  bed_->restart();
  ASSERT_EQ(hosted(register_sample_tree), 0);
  sample().fail_apply["n3"] = no_memory;
  sample().fail_apply["n190"] = no_memory;
  EXPECT_EQ(hosted([] { return ledger_config_replay(sample_root); }), 2);
  EXPECT_EQ(sample().applied.size(), 200U);
}

INSTANTIATE_TEST_SUITE_P(ways, ledger_commit_contract, ::testing::ValuesIn(ledger_test_bed_ways()),
                         ledger_way_name);

}  // namespace
}  // namespace ot::test
