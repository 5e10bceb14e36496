// The difference between what a track is and what it shall be, as a commit.
#include "tools/trackctl/plan.h"

#include <gmock/gmock.h>

namespace ot::trackctl {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

wanted_type interface_type(std::string_view name) {
  return {"type/interface/0x1/",
          {{"type/interface/0x1/a", u32_value(1)},
           {"type/interface/0x1/info/interface", text_value(name)}},
          false};
}

// What a track is after `changes`, so that a plan can be judged by its result.
void apply(track_items& items, const std::string& track, const commit& changes) {
  for (const ledger_proposal& change : changes) {
    const std::string item = change.path.substr(track_path(track).size());
    if (change.remove) {
      ASSERT_EQ(items.erase(item), 1U) << "deletes the absent item " << item;
    } else {
      items[item] = {change.kind, change.value};
    }
  }
}

track_items configured(std::string_view interface, const wanted_delays& delays) {
  track_items items;
  apply(items, "t", plan_set("t", {}, interface_type(interface), delays));
  return items;
}

// "+path" for a set, "-path" for a delete, without the track's path; behind the stage, if it is not
// the first.
std::vector<std::string> outline(const commit& changes) {
  std::vector<std::string> lines;
  for (const ledger_proposal& change : changes) {
    lines.push_back((change.stage == 0 ? "" : std::to_string(change.stage) + " ") +
                    (change.remove ? "-" : "+") + change.path.substr(track_path("t").size()));
  }
  return lines;
}

TEST(plan_set, creates_existence_then_type_then_delays_in_one_commit) {
  const commit changes = plan_set("t", {}, interface_type("eth0"), {5, 7});
  EXPECT_THAT(outline(changes),
              ElementsAre("+a", "+type/interface/0x1/a", "+type/interface/0x1/info/interface",
                          "+delay_up", "+delay_down"));
}

TEST(plan_set, encodes_numbers_in_host_order_and_texts_without_terminator) {
  const commit changes = plan_set("t", {}, interface_type("eth0"), {258, 0});
  EXPECT_EQ(changes.at(0).path, "/cfg/gl/object_tracking/track/t/a");
  EXPECT_EQ(changes.at(2).kind, ledger_kind::text);
  EXPECT_EQ(changes.at(2).value.size(), 4U);
  std::uint32_t seconds = 0;
  ASSERT_EQ(changes.at(3).value.size(), sizeof seconds);
  std::memcpy(&seconds, changes.at(3).value.data(), sizeof seconds);
  EXPECT_EQ(seconds, 258U);
}

TEST(plan_set, changes_nothing_when_the_track_is_so_already) {
  EXPECT_THAT(plan_set("t", configured("eth0", {5, 0}), interface_type("eth0"), {5, 0}), IsEmpty());
}

TEST(plan_set, touches_only_what_differs) {
  const commit changes = plan_set("t", configured("eth0", {5, 7}), interface_type("eth1"), {5, 8});
  EXPECT_THAT(outline(changes), ElementsAre("+type/interface/0x1/info/interface", "+delay_down"));
}

TEST(plan_set, removes_a_delay_that_is_not_asked_for) {
  const commit changes = plan_set("t", configured("eth0", {5, 7}), interface_type("eth0"), {0, 7});
  EXPECT_THAT(outline(changes), ElementsAre("-delay_up"));
}

TEST(plan_set, keeps_a_present_existence_item_whatever_its_value) {
  track_items present = configured("eth0", {});
  present["a"] = u32_value(9);
  EXPECT_THAT(plan_set("t", present, interface_type("eth0"), {}), IsEmpty());
}

TEST(plan_set, gives_a_track_with_delays_only_its_type) {
  track_items present{{"a", u32_value(1)}, {"delay_up", u32_value(5)}};
  const commit changes = plan_set("t", present, interface_type("eth0"), {5, 0});
  EXPECT_THAT(outline(changes),
              ElementsAre("+type/interface/0x1/a", "+type/interface/0x1/info/interface"));
}

TEST(plan_set, changes_the_type_by_deletion_and_creation) {
  track_items present{{"a", u32_value(1)},
                      {"delay_down", u32_value(3)},
                      {"type/list/0x3/a", u32_value(1)},
                      {"type/list/0x3/object/m/a", u32_value(0)}};
  const commit changes = plan_set("t", present, interface_type("eth0"), {0, 3});
  EXPECT_THAT(outline(changes),
              ElementsAre("-delay_down", "-type/list/0x3/a", "-type/list/0x3/object/m/a", "-a",
                          "1 +a", "1 +type/interface/0x1/a", "1 +type/interface/0x1/info/interface",
                          "1 +delay_down"));
  apply(present, "t", changes);
  EXPECT_EQ(present, configured("eth0", {0, 3}));
}

TEST(plan_set, distinguishes_the_numbers_of_one_folder) {
  const track_items present{{"a", u32_value(1)}, {"type/interface/0x11/a", u32_value(1)}};
  EXPECT_THAT(outline(plan_set("t", present, interface_type("eth0"), {})),
              ElementsAre("-type/interface/0x11/a", "-a", "1 +a", "1 +type/interface/0x1/a",
                          "1 +type/interface/0x1/info/interface"));
}

TEST(plan_set, removes_items_of_the_type_that_are_not_asked_for_before_setting) {
  track_items present = configured("eth0", {});
  present["type/interface/0x1/old"] = u32_value(1);
  const commit changes = plan_set("t", present, interface_type("eth1"), {});
  EXPECT_THAT(outline(changes),
              ElementsAre("-type/interface/0x1/old", "+type/interface/0x1/info/interface"));
}

TEST(plan_set, sets_limits_again_where_others_may_be_in_force) {
  const std::string folder = "type/list/0x7/";
  const wanted_type type{folder, {{folder + "thld_limits/val_up/0xa/val_dn", u32_value(1)}}};
  track_items present{{"a", u32_value(1)},
                      {folder + "thld_limits/val_up/0xa/val_dn", u32_value(1)}};
  EXPECT_THAT(plan_set("t", present, type, {}), IsEmpty());
  present.emplace(folder + "thld_limits/val_up/0x64/val_dn", u32_value(4));
  EXPECT_THAT(outline(plan_set("t", present, type, {})),
              ElementsAre("-type/list/0x7/thld_limits/val_up/0x64/val_dn",
                          "+type/list/0x7/thld_limits/val_up/0xa/val_dn"));
}

TEST(plan_set, recreates_a_kind_that_cannot_change_in_place) {
  wanted_type type = interface_type("eth1");
  type.recreate_on_change = true;
  EXPECT_THAT(
      outline(plan_set("t", configured("eth0", {}), type, {})),
      ElementsAre("-type/interface/0x1/a", "-type/interface/0x1/info/interface", "-a", "1 +a",
                  "1 +type/interface/0x1/a", "1 +type/interface/0x1/info/interface"));
  EXPECT_THAT(plan_set("t", configured("eth1", {}), type, {}), IsEmpty());
  // Its delays can change in place all the same.
  const commit changes = plan_set("t", configured("eth1", {}), type, {4, 0});
  EXPECT_THAT(outline(changes), ElementsAre("+delay_up"));
}

TEST(plan_delay, leaves_alone_what_is_not_given) {
  const track_items present = configured("eth0", {5, 7});
  EXPECT_THAT(outline(plan_delay("t", present, 6, std::nullopt)), ElementsAre("+delay_up"));
  EXPECT_THAT(outline(plan_delay("t", present, std::nullopt, 0)), ElementsAre("-delay_down"));
  EXPECT_THAT(plan_delay("t", present, 5, 7), IsEmpty());
}

TEST(plan_delay, does_not_delete_an_absent_delay) {
  EXPECT_THAT(plan_delay("t", configured("eth0", {}), 0, 0), IsEmpty());
}

TEST(plan_set, changes_the_type_of_a_track_that_was_made_without_an_existence) {
  track_items present{{"type/list/0x3/object/m/a", u32_value(0)}};
  const commit changes = plan_set("t", present, interface_type("eth0"), {});
  EXPECT_THAT(outline(changes),
              ElementsAre("+a", "1 -type/list/0x3/object/m/a", "1 -a", "2 +a",
                          "2 +type/interface/0x1/a", "2 +type/interface/0x1/info/interface"));
  apply(present, "t", changes);
  EXPECT_EQ(present, configured("eth0", {}));
}

TEST(plan_delete, ends_a_track_that_was_made_without_an_existence) {
  track_items present{{"delay_up", u32_value(5)}};
  const commit changes = plan_delete("t", present);
  EXPECT_THAT(outline(changes), ElementsAre("+a", "1 -delay_up", "1 -a"));
  apply(present, "t", changes);
  EXPECT_THAT(present, IsEmpty());
}

TEST(plan_delete, removes_everything_delays_first_existence_last) {
  track_items present = configured("eth0", {5, 7});
  const commit changes = plan_delete("t", present);
  EXPECT_THAT(outline(changes), ElementsAre("-delay_up", "-delay_down", "-type/interface/0x1/a",
                                            "-type/interface/0x1/info/interface", "-a"));
  apply(present, "t", changes);
  EXPECT_THAT(present, IsEmpty());
}

}  // namespace
}  // namespace ot::trackctl
