// "set NAME route PREFIX ...": its items and their order.
#include <gmock/gmock.h>

#include "tools/trackctl/kinds/kinds.h"

namespace ot::trackctl {
namespace {

// A restart applies items in the order in which they were made.
TEST(route_kind, writes_the_vrf_before_the_address) {
  command_line app{"", "set"};
  const items_reader read_items = find_track_kind("route")->define(app);
  parse_arguments(app, {"192.0.2.0/24", "--vrf", "red"});
  std::vector<std::string> paths;
  for (const config_item& item : read_items()) {
    paths.push_back(item.path);
  }
  EXPECT_THAT(paths, ::testing::ElementsAre("type/route/0x2/a", "type/route/0x2/info/vrf",
                                            "type/route/0x2/info/ip_address"));
}

TEST(route_kind, is_made_anew_when_it_changes) {
  EXPECT_TRUE(find_track_kind("route")->recreate_on_change);
}

}  // namespace
}  // namespace ot::trackctl
