// Commits: checked, decided, verified, stored and applied; and the replay of what was stored.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/component_status.h"
#include "platform/err_string.h"
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

TEST_P(ledger_commit_contract, what_was_worked_out_from_another_generation_is_refused) {
  const std::uint64_t before = ledger_config_generation();
  ASSERT_NE(before, 0U);
  ASSERT_EQ(before, hosted(ledger_config_generation));
  const auto commit_from = [this](std::uint64_t generation, const ledger_proposal& change) {
    return ledger_commit_unless_changed(ledger_get_default_conn(), generation, {&change, 1},
                                        &refusals_);
  };
  ASSERT_EQ(commit_from(before, set_number(a_of_x, 1)), 0);
  EXPECT_EQ(commit_from(before, set_number(a_of_y, 1)), ledger_changed);
  EXPECT_THAT(refusals_, IsEmpty());
  EXPECT_FALSE(stored(a_of_y));
  EXPECT_THAT(sample().verified, ElementsAre("1 x ->1"));
  EXPECT_EQ(commit_from(ledger_config_generation(), set_number(a_of_y, 1)), 0);
  EXPECT_EQ(commit_from(0, set_number(a_of_y, 2)), 0);
}

// --- Limits of names, numbers and values ---------------------------------------------------------

TEST_P(ledger_commit_contract, limits_are_checked_before_any_verifier) {
  const std::string thing = "/cfg/gl/sample/thing/";
  const bad_change rows[] = {
      {set_number(thing + std::string(40, 'n') + "/a", 1), invalid_argument,
       " (a name in it has 40 characters, at most 39 are taken)"},
      {set_tuple(thing + "x/kind/0x0/pair", {1, 2}), invalid_argument,
       " (the number 0x0 is less than 1)"},
      {set_tuple(thing + "x/kind/0x1/pair", {1}), ledger_wrong_kind,
       " (the tuple has 1 numbers, not 2)"},
      {set_tuple(thing + "x/kind/0x1/pair", {1, 2, 3}), ledger_wrong_kind,
       " (the tuple has 3 numbers, not 2)"},
  };
  for (const bad_change& row : rows) {
    EXPECT_EQ(commit({row.proposal}), row.code);
    ASSERT_EQ(refusals_.size(), 1U);
    EXPECT_EQ(refusals_[0].text, err_string(row.code) + (": " + row.proposal.path) + row.text);
  }
  EXPECT_THAT(sample().verified, IsEmpty());
  EXPECT_EQ(commit({set_number(thing + std::string(39, 'n') + "/a", 1)}), 0);
}

// --- Stages --------------------------------------------------------------------------------------

ledger_proposal in_stage(std::uint32_t stage, ledger_proposal proposal) {
  proposal.stage = stage;
  return proposal;
}

TEST_P(ledger_commit_contract, a_stage_is_verified_against_what_the_one_before_leads_to) {
  static int seen = 0;
  ASSERT_EQ(commit({set_number(a_of_x, 1), set_text(text_of_x, "t")}), 0);
  sample() = {};
  sample().while_verifying = [] {
    ledger_value value;
    seen = ledger_item_get(ledger_get_default_conn(), text_of_x + 1, &value);
    return seen;
  };
  ASSERT_EQ(commit({remove_item(text_of_x), remove_item(a_of_x), in_stage(1, set_number(a_of_x, 5)),
                    in_stage(3, set_number(a_of_x, 6))}),
            0);
  const auto changes = ElementsAre("4 x t>-", "4 x 1>-", "1 x ->5", "2 x 5>6");
  EXPECT_THAT(sample().verified, changes);
  EXPECT_THAT(sample().applied, changes);
  EXPECT_THAT(sample().expected, ElementsAre("4 x 1>-", "1 x ->5", "forgotten"));
  EXPECT_EQ(seen, ledger_no_data);
  ASSERT_TRUE(stored(a_of_x));
  EXPECT_EQ(value_.as_u32(), 6U);
  EXPECT_FALSE(stored(text_of_x));
}

TEST_P(ledger_commit_contract, a_refused_stage_leaves_everything_as_it_was) {
  ASSERT_EQ(commit({set_number(a_of_x, 1), set_text(text_of_x, "t")}), 0);
  sample() = {};
  sample().refuse["y"] = too_many_tracks;
  const std::uint64_t before = hosted(ledger_config_generation);
  EXPECT_EQ(commit({remove_item(text_of_x), remove_item(a_of_x), in_stage(1, set_number(a_of_y, 5)),
                    in_stage(2, set_number(a_of_x, 1))}),
            too_many_tracks);
  ASSERT_EQ(refusals_.size(), 1U);
  EXPECT_EQ(refusals_[0].path, a_of_y);
  EXPECT_THAT(sample().verified, ElementsAre("4 x t>-", "4 x 1>-", "1 y ->5"));
  EXPECT_THAT(sample().expected, ElementsAre("4 x 1>-", "forgotten"));
  EXPECT_THAT(sample().applied, IsEmpty());
  EXPECT_EQ(hosted(ledger_config_generation), before);
  EXPECT_TRUE(stored(a_of_x));
  EXPECT_TRUE(stored(text_of_x));
  EXPECT_FALSE(stored(a_of_y));
}

TEST_P(ledger_commit_contract, a_stage_that_is_over_does_not_begin_again) {
  EXPECT_EQ(commit({in_stage(1, set_number(a_of_x, 1)), set_number(a_of_y, 1)}), invalid_argument);
  ASSERT_EQ(refusals_.size(), 1U);
  EXPECT_EQ(refusals_[0].path, a_of_y);
  EXPECT_THAT(sample().verified, IsEmpty());
  EXPECT_FALSE(stored(a_of_x));
}

// --- Owners --------------------------------------------------------------------------------------

TEST_P(ledger_commit_contract, deleting_an_owner_takes_its_items_out_of_the_store) {
  const char* pair = "/cfg/gl/sample/thing/x/kind/0x2/pair";
  ASSERT_EQ(commit({set_number(a_of_x, 1), set_text(text_of_x, "t"), set_tuple(pair, {1, 2}),
                    set_number(a_of_y, 1), set_number("/cfg/gl/sample/thing/xy/a", 1)}),
            0);
  ASSERT_EQ(commit({remove_item(pair)}), 0);
  sample().applied.clear();
  ASSERT_EQ(commit({remove_item(a_of_x)}), 0);
  EXPECT_THAT(sample().applied, ElementsAre("4 x 1>-"));
  EXPECT_FALSE(stored(text_of_x));
  EXPECT_TRUE(stored(a_of_y));
  bed_->restart();
  ASSERT_EQ(hosted(register_sample_tree), 0);
  EXPECT_EQ(hosted([] { return ledger_config_replay(sample_root); }), 0);
  EXPECT_THAT(sample().applied, ElementsAre("1 y ->1", "1 xy ->1"));
}

TEST_P(ledger_commit_contract, an_owner_is_deleted_behind_its_items) {
  ASSERT_EQ(commit({set_number(a_of_x, 1), set_text(text_of_x, "t"), set_number(a_of_y, 1)}), 0);
  sample().applied.clear();
  ASSERT_EQ(commit({remove_item(a_of_x), remove_item(text_of_x), remove_item(a_of_y)}), 0);
  EXPECT_THAT(sample().applied, ElementsAre("4 x t>-", "4 x 1>-", "4 y 1>-"));
}

TEST_P(ledger_commit_contract, what_is_set_beside_the_delete_of_its_owner_stays) {
  ASSERT_EQ(commit({set_number(a_of_x, 1), set_text(text_of_x, "t")}), 0);
  ASSERT_EQ(commit({set_text(text_of_x, "u"), remove_item(a_of_x)}), 0);
  EXPECT_FALSE(stored(a_of_x));
  ASSERT_TRUE(stored(text_of_x));
  EXPECT_EQ(value_.as_text(), "u");
}

// --- Replay --------------------------------------------------------------------------------------

class ledger_replay_contract : public ledger_commit_contract {
 protected:
  // What a service that is started again applies.
  std::vector<std::string> replay() {
    bed_->restart();
    EXPECT_EQ(hosted(register_sample_tree), 0);
    EXPECT_THAT(sample().applied, IsEmpty());
    EXPECT_EQ(hosted([] { return ledger_config_replay(sample_root); }), 0);
    EXPECT_THAT(sample().verified, IsEmpty());
    return sample().applied;
  }
};

TEST_P(ledger_replay_contract, owners_come_in_the_order_in_which_they_came_first) {
  ASSERT_EQ(commit({set_text(text_of_x, "t"), set_number(a_of_y, 2)}), 0);
  ASSERT_EQ(commit({set_number(a_of_x, 1)}), 0);
  ASSERT_EQ(commit({remove_item(text_of_x)}), 0);  // the first item of x is gone, its place is not
  EXPECT_THAT(replay(), ElementsAre("1 x ->1", "1 y ->2"));
  ASSERT_EQ(commit({remove_item(a_of_x)}), 0);
  ASSERT_EQ(commit({set_number(a_of_x, 3)}), 0);  // another x
  EXPECT_THAT(replay(), ElementsAre("1 y ->2", "1 x ->3"));
}

TEST_P(ledger_replay_contract, items_of_an_owner_come_turn_by_turn) {
  ASSERT_EQ(commit({set_tuple("/cfg/gl/sample/thing/x/kind/0x2/pair", {1, 2})}), 0);
  ASSERT_EQ(commit({set_text(text_of_x, "t")}), 0);
  ASSERT_EQ(commit({set_number(a_of_x, 1)}), 0);
  EXPECT_THAT(replay(), ElementsAre("1 x ->1", "1 x ->t", "1 x 0x2=2 ->1,2"));
}

TEST_P(ledger_replay_contract, the_last_change_decides_within_a_turn) {
  const auto pair = [](const char* number) {
    return std::string{"/cfg/gl/sample/thing/x/kind/"} + number + "/pair";
  };
  ASSERT_EQ(commit({set_tuple(pair("0x1"), {1, 1}), set_tuple(pair("0x2"), {2, 2})}), 0);
  EXPECT_THAT(replay(), ElementsAre("1 x 0x1=1 ->1,1", "1 x 0x2=2 ->2,2"));
  ASSERT_EQ(commit({set_tuple(pair("0x1"), {1, 1})}), 0);  // the same value is a change here
  EXPECT_THAT(replay(), ElementsAre("1 x 0x2=2 ->2,2", "1 x 0x1=1 ->1,1"));
}

TEST_P(ledger_replay_contract, what_is_deleted_in_a_late_turn_stays_in_force_until_another_is_set) {
  const auto pair = [](const char* number) {
    return std::string{"/cfg/gl/sample/thing/x/kind/"} + number + "/pair";
  };
  ASSERT_EQ(commit({set_tuple(pair("0x1"), {1, 1}), set_tuple(pair("0x2"), {2, 2})}), 0);
  ASSERT_EQ(commit({remove_item(pair("0x2"))}), 0);
  EXPECT_FALSE(stored(pair("0x2").c_str()));
  EXPECT_THAT(replay(), ElementsAre("1 x 0x1=1 ->1,1", "1 x 0x2=2 ->2,2"));
  ASSERT_EQ(commit({remove_item(pair("0x1"))}), 0);
  EXPECT_THAT(replay(), ElementsAre("1 x 0x1=1 ->1,1", "1 x 0x2=2 ->2,2"));
  ASSERT_EQ(commit({set_tuple(pair("0x3"), {3, 3})}), 0);
  EXPECT_THAT(replay(), ElementsAre("1 x 0x3=3 ->3,3"));
}

TEST_P(ledger_replay_contract, a_walk_shows_nothing_that_is_deleted) {
  const std::string pair = "/cfg/gl/sample/thing/x/kind/0x1/pair";
  ASSERT_EQ(commit({set_number(a_of_x, 1), set_tuple(pair, {1, 1})}), 0);
  ASSERT_EQ(commit({remove_item(pair)}), 0);
  std::vector<std::string> paths;
  ASSERT_EQ(ledger_item_walk(
                ledger_get_default_conn(), "",
                [](void* context, std::string_view path, const ledger_value&) {
                  if (path.find("thing") != std::string_view::npos) {
                    static_cast<std::vector<std::string>*>(context)->emplace_back(path);
                  }
                  return true;
                },
                &paths),
            0);
  EXPECT_THAT(paths, ElementsAre(a_of_x + 1));
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

INSTANTIATE_TEST_SUITE_P(ways, ledger_replay_contract, ::testing::ValuesIn(ledger_test_bed_ways()),
                         ledger_way_name);
INSTANTIATE_TEST_SUITE_P(ways, ledger_commit_contract, ::testing::ValuesIn(ledger_test_bed_ways()),
                         ledger_way_name);

}  // namespace
}  // namespace ot::test
