// Which interfaces are set down and up, and what is remembered of it.
#include "tools/trackpolicy/kernel/link_keeper.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

namespace ot::trackpolicy {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class fake_kernel : public link_kernel {
 public:
  std::uint64_t now_us() const override { return now; }
  int set_up(std::uint32_t index, bool up) override {
    asked.push_back(std::to_string(index) + (up ? " up" : " down"));
    if (refusal == 0) {
      link_fact link = *links.find(index);
      link.up = up;
      events.push_back(link);
    }
    return refusal;
  }
  std::string remember(const held_links& held) override {
    if (full.empty()) {
      memory = held;
      asked.push_back("remember " + std::to_string(held.size()));
    }
    return full;
  }
  void tell(const std::string& owner, const std::string& text) override {
    told.push_back(owner + ": " + text);
  }

  void take_events() {
    for (const link_fact& each : events) {
      links.put(each);
    }
    events.clear();
  }

  link_table links;
  std::vector<link_fact> events;
  held_links memory;
  std::string full;
  int refusal = 0;
  std::uint64_t now = 5'000'000;
  std::vector<std::string> asked;
  std::vector<std::string> told;
};

track_info__ record(const char* name, track_type type) {
  track_info__ made;
  made.TrackeName.assign(name);
  made.Type = type;
  return made;
}

class kept_links : public testing::Test {
 protected:
  kept_links() {
    link("acc0", 3, true);
    tracks_.note(record("t", track_type::interface), {});
  }

  void link(const char* name, std::uint32_t index, bool up, std::uint32_t lower = 0) {
    kernel_.links.put({.index = index, .name = name, .up = up, .vrf_table = 0, .lower = lower});
  }
  std::uint64_t become(wish up) {
    keeper_.set("p", "t", "acc0", up);
    return settle();
  }
  std::uint64_t settle() {
    const std::uint64_t next = keeper_.settle(kernel_.links, tracks_, kernel_);
    kernel_.take_events();
    return next;
  }
  [[nodiscard]] bool is_up() const { return kernel_.links.find("acc0")->up; }
  void restart() {
    keeper_ = {};
    keeper_.recall(kernel_.memory);
  }

  link_keeper keeper_;
  foundations tracks_;
  fake_kernel kernel_;
};

TEST_F(kept_links, it_is_remembered_before_it_is_set_down_and_forgotten_after_it_is_up) {
  become(wish::no);
  become(wish::yes);
  EXPECT_THAT(kernel_.asked, ElementsAre("remember 1", "3 down", "3 up", "remember 0"));
  EXPECT_EQ(keeper_.status("p", kernel_.links).stands, "acc0 is up");
  EXPECT_EQ(keeper_.status("p", kernel_.links).changes, 2U);
}

TEST_F(kept_links, one_that_the_operator_has_set_down_stays_down) {
  link("acc0", 3, false);
  become(wish::no);
  EXPECT_EQ(keeper_.status("p", kernel_.links).stands, "acc0 is down, and not by trackpolicy");
  become(wish::yes);
  EXPECT_THAT(kernel_.asked, IsEmpty());
  EXPECT_FALSE(is_up());
}

TEST_F(kept_links, a_restart_knows_what_was_set_down) {
  become(wish::no);
  restart();
  become(wish::keep);
  EXPECT_FALSE(is_up());
  EXPECT_EQ(keeper_.status("p", kernel_.links).stands, "acc0 is set down");
  become(wish::yes);
  EXPECT_TRUE(is_up());
  EXPECT_THAT(kernel_.memory, IsEmpty());
}

TEST_F(kept_links, a_crash_between_remembering_and_setting_down_does_no_harm) {
  kernel_.memory = {{"acc0", 3}};
  restart();
  become(wish::yes);
  EXPECT_THAT(kernel_.asked, ElementsAre("remember 0"));
}

TEST_F(kept_links, one_that_nobody_asks_for_any_more_is_set_up_again) {
  become(wish::no);
  keeper_.forget("p");
  settle();
  EXPECT_TRUE(is_up());
  become(wish::no);
  restart();
  settle();
  EXPECT_TRUE(is_up());
}

TEST_F(kept_links, an_interface_that_came_back_under_its_name_is_another_one) {
  become(wish::no);
  kernel_.links.erase(3);
  settle();
  link("acc0", 8, false);
  kernel_.asked.clear();
  become(wish::yes);
  EXPECT_THAT(kernel_.asked, IsEmpty());

  kernel_.now += link_keeper::again_us;
  link("acc0", 8, true);
  become(wish::no);
  link("acc0", 9, false);  // at once
  kernel_.asked.clear();
  become(wish::yes);
  EXPECT_THAT(kernel_.asked, ElementsAre("remember 0"));
}

TEST_F(kept_links, one_that_is_renamed_is_still_the_one_that_was_set_down) {
  become(wish::no);
  kernel_.asked.clear();
  link("other", 3, false);  // nobody asks for that
  settle();
  EXPECT_THAT(kernel_.asked, ElementsAre("remember 1", "3 up", "remember 0"));

  kernel_.now += link_keeper::again_us;
  link("acc0", 3, true);
  become(wish::no);
  link("other", 3, false);
  restart();
  settle();
  EXPECT_TRUE(kernel_.links.find("other")->up);
}

TEST_F(kept_links, it_is_not_set_down_before_it_is_known_what_the_track_stands_on) {
  keeper_.set("p", "new", "acc0", wish::no);
  settle();
  EXPECT_THAT(kernel_.asked, IsEmpty());
  track_info__ late = record("new", track_type::interface);
  tracks_.note(late, {});
  settle();
  EXPECT_FALSE(is_up());
}

TEST_F(kept_links, it_is_down_as_long_as_one_of_several_policies_wants_that) {
  keeper_.set("p", "t", "acc0", wish::no);
  keeper_.set("q", "u", "acc0", wish::no);
  settle();
  become(wish::yes);
  EXPECT_FALSE(is_up());
  keeper_.set("q", "u", "acc0", wish::yes);
  settle();
  EXPECT_TRUE(is_up());
}

TEST_F(kept_links, what_is_unknown_changes_nothing) {
  become(wish::keep);
  EXPECT_TRUE(is_up());
  become(wish::no);
  become(wish::keep);
  EXPECT_FALSE(is_up());
}

TEST_F(kept_links, who_sets_it_up_again_and_again_is_followed_once_a_second) {
  become(wish::no);
  link("acc0", 3, true);
  EXPECT_EQ(settle(), kernel_.now + link_keeper::again_us);
  EXPECT_TRUE(is_up());
  kernel_.now += link_keeper::again_us;
  EXPECT_EQ(settle(), UINT64_MAX);
  EXPECT_FALSE(is_up());
}

TEST_F(kept_links, what_cannot_be_remembered_is_not_set_down) {
  kernel_.full = "/run: No space left on device";
  become(wish::no);
  EXPECT_TRUE(is_up());
  EXPECT_THAT(kernel_.told,
              ElementsAre("p: acc0 cannot be set down: /run: No space left on device"));
}

TEST_F(kept_links, a_refusal_is_tried_again_and_told_once) {
  kernel_.refusal = EPERM;
  const std::string refused = "acc0 cannot be set down: Operation not permitted";
  EXPECT_EQ(become(wish::no), kernel_.now + 5'000'000);
  settle();  // too soon after the first time
  EXPECT_EQ(keeper_.status("p", kernel_.links).problem, refused);
  kernel_.now += 5'000'000;
  settle();
  EXPECT_THAT(kernel_.told, ElementsAre("p: " + refused));
  EXPECT_THAT(kernel_.memory, IsEmpty());
  kernel_.refusal = 0;
  kernel_.now += 5'000'000;
  settle();
  EXPECT_FALSE(is_up());
  EXPECT_EQ(keeper_.status("p", kernel_.links).problem, "");
}

TEST_F(kept_links, one_that_is_not_there_is_told) {
  keeper_.set("p", "t", "none0", wish::no);
  settle();
  EXPECT_EQ(keeper_.status("p", kernel_.links).stands, "waits for none0");
  EXPECT_EQ(keeper_.status("p", kernel_.links).problem, "there is no interface \"none0\"");
}

TEST_F(kept_links, what_the_track_depends_on_is_not_set_down) {
  track_info__ followed = record("t", track_type::interface);
  followed.TrackTypeInfo.InterfaceTracks.InterfaceName.assign("acc0");
  tracks_.note(followed, {});
  become(wish::no);
  EXPECT_TRUE(is_up());
  EXPECT_EQ(keeper_.status("p", kernel_.links).problem,
            "acc0 is not set down: track \"t\" depends on it (t follows it), and would never be up "
            "again");
}

TEST_F(kept_links, one_that_the_track_has_come_to_depend_on_is_set_up_again) {
  become(wish::no);
  track_info__ session = record("t", track_type::bfd);
  session.TrackTypeInfo.BFDTracks.InterfaceName.assign("acc0.5");
  tracks_.note(session, {});
  link("acc0.5", 4, true, 3);
  settle();
  EXPECT_TRUE(is_up());
  EXPECT_THAT(keeper_.status("p", kernel_.links).problem,
              HasSubstr("t has its BFD session on acc0.5, which lies on it"));
}

TEST(foundations, lists_routes_and_probes_lead_to_interfaces) {
  bool_track_info__ second;
  second.ObjectName.assign("gone");
  bool_track_info__ first;
  first.ObjectName.assign("way");
  first.next = &second;
  threshold_track_info__ member;
  member.ObjectName.assign("all");  // a cycle
  track_info__ all = record("all", track_type::boolean_and);
  all.BoolTracks = &first;
  track_info__ sum = record("sum", track_type::threshold_weight);
  sum.ThresholdTracks = &member;
  second.ObjectName.assign("sum");
  track_info__ way = record("way", track_type::route);
  way.TrackTypeInfo.RouteTracks.NextHop.assign("wan0");
  track_info__ probe = record("probe", track_type::probe);
  probe.TrackTypeInfo.QmonTracks.QmonOpId = 7;
  foundations tracks;
  for (const track_info__* each : {&all, &sum, &way, &probe}) {
    tracks.note(*each, {{7, "wan1"}});
  }
  EXPECT_THAT(tracks.below("sum"), ElementsAre(testing::Pair("wan0", "way has its route through")));
  EXPECT_THAT(tracks.below("probe"), ElementsAre(testing::Pair("wan1", "probe probes through")));
  EXPECT_THAT(tracks.below("none"), IsEmpty());

  foundations later;
  way.TrackTypeInfo.RouteTracks.NextHop.assign("");
  later.note(way, {});
  later.keep_routes_of(tracks);
  EXPECT_THAT(later.below("way"), ElementsAre(testing::Pair("wan0", testing::_)));
}

}  // namespace
}  // namespace ot::trackpolicy
