// Every row of the table of kinds: its example parses, and its items lie in its folder.
#include <gmock/gmock.h>

#include <set>
#include <sstream>

#include "tools/trackctl/kinds/kinds.h"

namespace ot::trackctl {
namespace {

// The words of the example behind the name and the kind.
std::vector<std::string> example_arguments(const track_kind& kind) {
  std::istringstream words(kind.example);
  std::vector<std::string> result{std::istream_iterator<std::string>(words), {}};
  EXPECT_GE(result.size(), 2U);
  EXPECT_EQ(result.at(1), kind.word);
  result.erase(result.begin(), result.begin() + 2);
  return result;
}

std::vector<config_item> example_items(const track_kind& kind) {
  command_line app{"", "set"};
  const items_reader read_items = kind.define(app);
  std::string delay;
  app.add_option("--delay-up", delay, "");
  app.add_option("--delay-down", delay, "");
  parse_arguments(app, example_arguments(kind));
  return read_items();
}

TEST(track_kinds, words_are_unique_and_found) {
  std::set<std::string_view> words;
  for (const track_kind& kind : track_kinds()) {
    EXPECT_TRUE(words.insert(kind.word).second) << kind.word;
    EXPECT_EQ(find_track_kind(kind.word), &kind);
  }
  EXPECT_EQ(find_track_kind("line"), nullptr);
  EXPECT_EQ(find_track_kind(""), nullptr);
}

TEST(track_kinds, folders_end_in_the_number_of_the_type) {
  for (const track_kind& kind : track_kinds()) {
    EXPECT_EQ(find_track_kind(kind.type), &kind);
    EXPECT_THAT(kind.folder,
                ::testing::EndsWith("/0x" + std::to_string(static_cast<int>(kind.type)) + "/"));
  }
  EXPECT_EQ(find_track_kind(track_type::none), nullptr);
}

TEST(track_kinds, examples_give_items_in_the_kinds_folder) {
  for (const track_kind& kind : track_kinds()) {
    const auto items = example_items(kind);
    EXPECT_FALSE(items.empty()) << kind.word;
    for (const config_item& item : items) {
      EXPECT_THAT(item.path, ::testing::StartsWith(kind.folder));
    }
  }
}

TEST(track_kinds, interface_gives_its_type_item_and_the_name) {
  command_line app{"", "set"};
  const items_reader read_items = find_track_kind("interface")->define(app);
  parse_arguments(app, {"wan0"});
  const auto items = read_items();
  ASSERT_EQ(items.size(), 2U);
  EXPECT_EQ(items[0].path, "type/interface/0x1/a");
  EXPECT_EQ(items[0].value, u32_value(1));
  EXPECT_EQ(items[1].path, "type/interface/0x1/info/interface");
  EXPECT_EQ(items[1].value, text_value("wan0"));
}

}  // namespace
}  // namespace ot::trackctl
