// Lists on the command line: reading members and limits, and the commits that change a list.
#include "tools/trackctl/kinds/lists.h"

#include <gmock/gmock.h>

#include "tests/tools/stages.h"
#include "tools/trackctl/command.h"
#include "tools/trackctl/plan.h"

namespace ot::trackctl {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

constexpr const char* and_folder = "type/list/0x3/";
constexpr const char* or_folder = "type/list/0x4/";
constexpr const char* weight_folder = "type/list/0x7/";

// "a=1 b=0".
std::string text_of(const std::vector<list_member_word>& members) {
  std::string text;
  for (const auto& [name, value] : members) {
    text += (text.empty() ? "" : " ") + name + "=" + std::to_string(value);
  }
  return text;
}

template <typename Action>
std::string refusal(Action&& action) {
  try {
    action();
  } catch (const failure& reason) {
    EXPECT_EQ(reason.status, exit_usage);
    return reason.what();
  }
  return "";
}

TEST(list_members, not_belongs_to_the_word_behind_it) {
  EXPECT_EQ(text_of(read_boolean_members({"a", "not", "b", "c"})), "a=0 b=1 c=0");
  EXPECT_THAT(refusal([] {
                read_boolean_members({"not", "not"});
              }),
              HasSubstr("track name \"not\" is taken"));
  EXPECT_THAT(refusal([] { read_boolean_members({"a", "not"}); }), HasSubstr("needs a MEMBER"));
}

TEST(list_members, are_named_once_and_well) {
  EXPECT_THAT(refusal([] { read_boolean_members({"a", "not", "a"}); }), HasSubstr("named twice"));
  EXPECT_THAT(refusal([] { read_boolean_members({"a=3"}); }), HasSubstr("\"a=3\""));
  EXPECT_THAT(refusal([] { read_weighted_members({"a=1", "a=2"}); }), HasSubstr("named twice"));
  EXPECT_THAT(refusal([] { read_weighted_members({"=1"}); }), HasSubstr("empty"));
}

TEST(list_members, a_weight_list_wants_weights) {
  EXPECT_EQ(text_of(read_weighted_members({"a=0", "b=4294967295"})), "a=0 b=4294967295");
  EXPECT_THAT(refusal([] { read_weighted_members({"a"}); }), HasSubstr("write a=WEIGHT"));
  EXPECT_THAT(refusal([] {
                read_weighted_members({"not", "a=1"});
              }),
              HasSubstr("no \"not\" in a weight list"));
  for (const char* const word : {"a=", "a=x", "a=-1", "a=4294967296", "a=1=2"}) {
    EXPECT_THAT(refusal([&] { read_weighted_members({word}); }), HasSubstr("member \"a\"")) << word;
  }
}

TEST(list_members, a_percentage_list_counts_weights_as_one) {
  std::vector<std::string> weighted;
  EXPECT_EQ(text_of(read_percentage_members({"a", "b=50"}, weighted)), "a=1 b=1");
  EXPECT_THAT(weighted, ElementsAre("b"));
  EXPECT_THAT(refusal([&] { read_percentage_members({"b=x"}, weighted); }), HasSubstr("\"b\""));
  EXPECT_THAT(refusal([&] {
                read_percentage_members({"not", "b"}, weighted);
              }),
              HasSubstr("no \"not\""));
}

TEST(list_limits, are_apart_and_the_up_limit_is_not_0) {
  EXPECT_EQ(read_limits("4294967295", "0").up, 0xffffffffU);
  EXPECT_THAT(refusal([] { read_limits("5", "5"); }), HasSubstr("not greater than --down 5"));
  EXPECT_THAT(refusal([] { read_limits("5", "6"); }), HasSubstr("not greater"));
  EXPECT_THAT(refusal([] { read_limits("0", "0"); }), HasSubstr("from 1 to"));
}

// --- Commits -------------------------------------------------------------------------------------

track_items items_of(const std::vector<config_item>& items) {
  track_items present{{std::string(existence_item), u32_value(1)}};
  for (const config_item& item : items) {
    present[item.path] = item.value;
  }
  return present;
}

std::vector<config_item> boolean(const char* folder, const std::vector<std::string>& words) {
  return list_items(folder, nullptr, read_boolean_members(words));
}

std::vector<config_item> weighted(list_limits limits, const std::vector<std::string>& words) {
  return list_items(weight_folder, &limits, read_weighted_members(words));
}

// Each stage as "+path=value" and "-path", below the type.
using outline = std::vector<std::string>;
std::vector<outline> changes(const std::vector<config_item>& from, const char* folder,
                             const std::vector<config_item>& to) {
  std::vector<outline> commits;
  for (const commit& one : stages_of(plan_set("l", items_of(from), {folder, to, false}, {}))) {
    outline lines;
    for (const ledger_proposal& change : one) {
      const std::string path = change.path.substr(track_path("l").size());
      lines.push_back(change.remove ? "-" + path
                                    : "+" + path + "=" +
                                          std::to_string(std::to_integer<int>(change.value.at(0))));
    }
    commits.push_back(lines);
  }
  return commits;
}

TEST(list_plan, a_new_list_has_its_members_in_reverse) {
  const auto items = weighted({255, 3}, {"a=1", "b=2"});
  ASSERT_EQ(items.size(), 4U);
  EXPECT_EQ(items[0].path, "type/list/0x7/a");
  EXPECT_EQ(items[1].path, "type/list/0x7/thld_limits/val_up/0xff/val_dn");
  EXPECT_EQ(items[1].value, u32_value(3));
  EXPECT_EQ(items[2].path, "type/list/0x7/object/b/a");
  EXPECT_EQ(items[3].path, "type/list/0x7/object/a/a");
  EXPECT_EQ(items[3].value, u32_value(1));
}

TEST(list_plan, only_members_that_change_are_sent) {
  const auto commits = changes(boolean(and_folder, {"a", "b", "not", "c", "d"}), and_folder,
                               boolean(and_folder, {"d", "e", "c", "a"}));
  ASSERT_EQ(commits.size(), 1U);
  EXPECT_THAT(commits[0],
              UnorderedElementsAre("-type/list/0x3/object/b/a", "+type/list/0x3/object/c/a=0",
                                   "+type/list/0x3/object/e/a=0"));
}

TEST(list_plan, the_order_of_members_is_no_difference) {
  EXPECT_THAT(changes(boolean(or_folder, {"a", "b"}), or_folder, boolean(or_folder, {"b", "a"})),
              IsEmpty());
}

TEST(list_plan, another_up_limit_is_another_item) {
  EXPECT_THAT(changes(weighted({10, 5}, {"a=1"}), weight_folder, weighted({12, 5}, {"a=1"})),
              ElementsAre(ElementsAre("-type/list/0x7/thld_limits/val_up/0xa/val_dn",
                                      "+type/list/0x7/thld_limits/val_up/0xc/val_dn=5")));
  EXPECT_THAT(changes(weighted({10, 5}, {"a=1"}), weight_folder, weighted({10, 6}, {"a=2"})),
              ElementsAre(ElementsAre("+type/list/0x7/thld_limits/val_up/0xa/val_dn=6",
                                      "+type/list/0x7/object/a/a=2")));
}

TEST(list_plan, another_kind_of_list_is_made_anew) {
  const auto commits = changes(boolean(and_folder, {"a"}), or_folder, boolean(or_folder, {"a"}));
  EXPECT_THAT(
      commits,
      ElementsAre(ElementsAre("-type/list/0x3/a", "-type/list/0x3/object/a/a", "-a"),
                  ElementsAre("+a=1", "+type/list/0x4/a=1", "+type/list/0x4/object/a/a=0")));
}

}  // namespace
}  // namespace ot::trackctl
