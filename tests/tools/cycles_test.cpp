// Finding lists that contain each other.
#include "tools/trackctl/cycles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

namespace ot::trackctl {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using lists = std::map<std::string, std::vector<std::string>>;

std::vector<std::string> cycle_of(const std::string& track, const lists& all) {
  std::map<std::string, int> asked;
  const auto cycle = find_cycle(track, [&](const std::string& name) {
    EXPECT_EQ(++asked[name], 1) << name;
    const auto found = all.find(name);
    return found == all.end() ? std::vector<std::string>{} : found->second;
  });
  return cycle;
}

TEST(list_cycles, none_among_lists_of_plain_tracks) {
  EXPECT_THAT(cycle_of("a", {{"a", {"x", "y"}}, {"b", {"a", "x"}}}), IsEmpty());
  EXPECT_THAT(cycle_of("x", {}), IsEmpty());
}

TEST(list_cycles, a_list_of_itself) {
  EXPECT_THAT(cycle_of("a", {{"a", {"x", "a"}}}), ElementsAre("a", "a"));
}

TEST(list_cycles, the_way_follows_the_members) {
  const lists all{{"a", {"b", "x"}}, {"b", {"c"}}, {"c", {"y", "a"}}};
  EXPECT_THAT(cycle_of("a", all), ElementsAre("a", "b", "c", "a"));
  EXPECT_THAT(cycle_of("c", all), ElementsAre("c", "a", "b", "c"));
}

TEST(list_cycles, the_shortest_is_named) {
  EXPECT_THAT(cycle_of("a", {{"a", {"b", "d"}}, {"b", {"c"}}, {"c", {"a"}}, {"d", {"a"}}}),
              ElementsAre("a", "d", "a"));
}

TEST(list_cycles, one_that_does_not_hold_the_track_is_no_concern) {
  EXPECT_THAT(cycle_of("a", {{"a", {"b"}}, {"b", {"c"}}, {"c", {"b"}}}), IsEmpty());
}

TEST(list_cycles, members_reached_in_several_ways_are_asked_once) {
  EXPECT_THAT(cycle_of("a", {{"a", {"b", "c"}}, {"b", {"d"}}, {"c", {"d"}}, {"d", {"e"}}}),
              IsEmpty());
}

}  // namespace
}  // namespace ot::trackctl
