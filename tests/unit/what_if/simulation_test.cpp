// What-if: its answer for a service beside what then happens to that service.
#include "tools/what_if/simulation.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>

#include "platform/common/timer_driver.h"
#include "platform/memory/controls.h"
#include "platform/memory/ledger_controls.h"
#include "state/timers.h"
#include "tests/unit/what_if/random_site.h"
#include "tools/what_if/wire.h"

namespace ot::test {
namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;

#if defined(OT_SOAK)
constexpr std::uint64_t default_cases = 10'000;
#elif defined(OT_SANITIZED)
constexpr std::uint64_t default_cases = 100;
#else
constexpr std::uint64_t default_cases = 1'000;
#endif

std::uint64_t number_from(const char* variable, std::uint64_t otherwise) {
  const char* text = std::getenv(variable);
  return text == nullptr ? otherwise : std::strtoull(text, nullptr, 10);
}

// "after 1020 site down".
std::string line_of(std::uint64_t after_ms, const std::string& track, const std::string& state) {
  return "after " + std::to_string(after_ms) + " " + track + " " + state;
}

text_lines lines_of(const what_if::answer& found) {
  text_lines lines;
  for (const what_if::change& each : found.changes) {
    lines.push_back(line_of(each.after_ms, each.track, each.to));
  }
  return lines;
}

class what_if_answer : public service_fixture {
 protected:
  // The question about the service as it is now.
  static what_if::question ask() {
    what_if::question asked;
    ledger_item_walk(
        ledger_get_default_conn(), "cfg/gl/object_tracking/track/",
        [](void* context, std::string_view path, const ledger_value& value) {
          static_cast<what_if::question*>(context)->items.push_back(
              {"/" + std::string(path), value.kind, {value.bytes().begin(), value.bytes().end()}});
          return true;
        },
        &asked);
    for_each([&](const ot_track& track) {
      what_if::present_track present{
          std::string(track.name.view()), track.state, track.source_state, {}};
      if (wtm_timer_leaf_running(track.delay_timer)) {
        present.delay = {static_cast<track_state>(get_timer_ctx(track.delay_timer)->value),
                         wtm_timer_leaf_remaining_ms(track.delay_timer)};
      }
      asked.tracks.push_back(present);
    });
    put_members_in_order(asked);
    return asked;
  }

  // The oldest member first. A list that judges its members in another order may not be computed
  // where it is in a cycle.
  static void put_members_in_order(what_if::question& asked) {
    std::map<std::string, int> places;
    for_each([&](const ot_track& track) {
      int place = 0;
      for (const list_member* member = is_list_type(track.type) ? track.object.list.members
                                                                : nullptr;
           member != nullptr; member = member->next) {
        places[std::string(track.name.view()) + " " + std::string(member->name.view())] = --place;
      }
    });
    const auto place_of = [&](const what_if::stored_item& item) {
      char track[40] = "";
      char member[40] = "";
      const int found = std::sscanf(item.path.c_str(),
                                    "/cfg/gl/object_tracking/track/%39[^/]/type/list/%*[^/]/"
                                    "object/%39[^/]/a",
                                    track, member);
      return found == 2 ? places[std::string(track) + " " + member] : 0;
    };
    std::stable_sort(
        asked.items.begin(), asked.items.end(),
        [&](const auto& one, const auto& other) { return place_of(one) < place_of(other); });
  }

  template <typename Visit>
  static void for_each(Visit visit) {
    for (auto* track = hash_db_first_data<ot_track>(tracks_table); track != nullptr;
         track = hash_db_next_data<ot_track>(tracks_table)) {
      visit(*track);
    }
  }

  // What becomes of the service until nothing moves any more, as lines_of says it.
  static text_lines what_happens(std::uint64_t since_ns) {
    text_lines lines;
    note(since_ns, lines);
    while (still_moving()) {
      field::advance_to_next();
      note(since_ns, lines);
    }
    return lines;
  }

  // The answer of the process that trackctl would start, which has no other service in it.
  what_if::answer answer_to(const what_if::question& asked) {
    stop();
    const auto bytes = what_if::encode(asked);
    const auto answer = what_if::encode(what_if::simulate(
        what_if::decode_question({reinterpret_cast<const char*>(bytes.data()), bytes.size()})));
    return what_if::decode_answer({reinterpret_cast<const char*>(answer.data()), answer.size()});
  }

  static std::map<std::string, track_state>& known() {
    static std::map<std::string, track_state> states;
    return states;
  }
  static void remember() {
    known().clear();
    for_each([](const ot_track& track) { known()[std::string(track.name.view())] = track.state; });
  }

 private:
  static bool still_moving() {
    bool moving = wtm_timer_leaf_running(tracks_calc_timer);
    for_each([&](const ot_track& t) { moving |= wtm_timer_leaf_running(t.delay_timer); });
    return moving;
  }

  static void note(std::uint64_t since_ns, text_lines& lines) {
    constexpr const char* words[] = {"unknown", "up", "down"};
    const std::uint64_t after = (timer_now_ns() - since_ns) / 1'000'000;
    const auto before = known();
    remember();
    std::map<std::string, std::string> changes;
    for (const auto& [name, state] : known()) {
      const auto found = before.find(name);
      if (found == before.end() || found->second != state) {
        changes[name] = words[static_cast<std::size_t>(state)];
      }
    }
    for (const auto& [name, state] : before) {
      if (!known().contains(name)) {
        changes[name] = "gone";
      }
    }
    for (const auto& [name, state] : changes) {
      lines.push_back(line_of(after, name, state));
    }
  }
};

// --- Random sites ------------------------------------------------------------------------------

class what_if_of_random_sites : public what_if_answer {
 protected:
  // A service with a history; everything of it by chance from the number of the case.
  void live(random_site& site) {
    stop();
    field::reset();
    ledger_control_reset();
    ASSERT_EQ(start(), 0);
    ASSERT_EQ(commit(site.make_configuration()), 0);
    for (std::uint32_t steps = 2 + site.below(5); steps > 0; --steps) {
      site.flap();
      field::advance(milliseconds(site.pause_ms()));
    }
    // trackctl cannot see that lists are about to be calculated, which is over within 20 ms.
    while (wtm_timer_leaf_running(tracks_calc_timer)) {
      field::advance_to_next();
    }
    remember();
  }

  template <typename Case>
  void for_all(std::uint64_t count, Case&& run) {
    const std::uint64_t first = number_from("OT_WHAT_IF_FIRST", 0);
    const std::uint64_t last = first + number_from("OT_WHAT_IF_CASES", count);
    for (std::uint64_t which = first; which < last; ++which) {
      SCOPED_TRACE("OT_WHAT_IF_FIRST=" + std::to_string(which));
      run(which);
      if (HasFailure()) {
        return;
      }
    }
  }
};

TEST_F(what_if_of_random_sites, agrees_with_what_then_happens_when_objects_change) {
  std::size_t changes = 0;
  for_all(default_cases, [&](std::uint64_t which) {
    random_site site(which);
    live(site);
    what_if::question asked = ask();
    const std::uint64_t now = timer_now_ns();
    for (const std::string& follower : site.follower_names()) {
      if (site.below(3) == 0) {
        const bool up = site.below(2) == 0;
        asked.assumptions.push_back({follower, up ? track_state::up : track_state::down});
        site.bring(site.interface_of(follower), up);
      }
    }
    field::run_pending();
    const text_lines happened = what_happens(now);
    changes += happened.size();
    const what_if::answer found = answer_to(asked);
    EXPECT_EQ(lines_of(found), happened);
    EXPECT_THAT(found.unmet, IsEmpty());
  });
  EXPECT_GT(changes, number_from("OT_WHAT_IF_CASES", default_cases)) << "hardly anything happens";
}

TEST_F(what_if_of_random_sites, agrees_with_what_then_happens_when_the_configuration_changes) {
  for_all(default_cases / 4, [&](std::uint64_t which) {
    random_site site(which);
    live(site);
    what_if::question asked = ask();
    const std::uint64_t now = timer_now_ns();
    const std::string name = (site.below(2) == 0 ? "n" : "l") + std::to_string(site.below(4));
    std::vector<ledger_proposal> items;
    if (known().contains(name)) {
      for (const what_if::stored_item& item : asked.items) {
        if (item.path.starts_with(track_path(name, "")) && !item.path.ends_with(name + "/a")) {
          items.push_back(remove_item(item.path));
        }
      }
      items.push_back(remove_item(track_path(name, "a")));
    } else {
      items = site.make_list(name);
    }
    asked.changes = items;
    ASSERT_EQ(commit(items), 0);
    const text_lines happened = what_happens(now);
    const what_if::answer found = answer_to(asked);
    EXPECT_EQ(found.refusal, "");
    EXPECT_EQ(lines_of(found), happened);
  });
}

// --- Single answers ------------------------------------------------------------------------------

class what_if_of_a_site : public what_if_answer {
 protected:
  void SetUp() override {
    ASSERT_EQ(start(), 0);
    field::interface_added("eth0");
    ASSERT_EQ(commit(interface_track("uplink", "eth0")), 0);
  }
  void set_list(const std::string& name, const std::string& member, std::uint32_t delay_down) {
    std::vector<ledger_proposal> items{
        set_number(track_path(name, "a"), 1), set_number(track_path(name, "type/list/0x3/a"), 1),
        set_number(track_path(name, "type/list/0x3/object/" + member + "/a"), 0)};
    if (delay_down != 0) {
      items.push_back(set_number(track_path(name, "delay_down"), delay_down));
    }
    ASSERT_EQ(commit(items), 0);
  }
  static what_if::question with(what_if::question asked, const std::string& track,
                                track_state state) {
    asked.assumptions.push_back({track, state});
    return asked;
  }
};

TEST_F(what_if_of_a_site, says_what_changes_at_once_and_what_after_which_delay) {
  set_list("site", "uplink", 5);
  set_list("country", "site", 0);
  field::advance(std::chrono::seconds(1));
  EXPECT_THAT(
      lines_of(answer_to(with(ask(), "uplink", track_state::down))),
      ElementsAre("after 0 uplink down", "after 5020 site down", "after 5040 country down"));
}

TEST_F(what_if_of_a_site, is_empty_when_the_object_is_so_already) {
  EXPECT_THAT(answer_to(with(ask(), "uplink", track_state::up)).changes, IsEmpty());
}

TEST_F(what_if_of_a_site, changes_every_track_on_the_same_object) {
  ASSERT_EQ(commit(interface_track("other", "eth0")), 0);
  EXPECT_THAT(lines_of(answer_to(with(ask(), "uplink", track_state::down))),
              ElementsAre("after 0 other down", "after 0 uplink down"));
}

TEST_F(what_if_of_a_site, marks_what_would_happen_anyway) {
  set_list("site", "uplink", 5);
  ASSERT_EQ(commit(interface_track("backup", "eth1")), 0);
  field::advance(std::chrono::seconds(1));
  field::link_down("eth0");
  field::advance(std::chrono::seconds(2));
  const what_if::answer found = answer_to(with(ask(), "backup", track_state::up));
  EXPECT_THAT(lines_of(found), ElementsAre("after 0 backup up", "after 3020 site down"));
  ASSERT_EQ(found.changes.size(), 2U);
  EXPECT_FALSE(found.changes[0].anyway);
  EXPECT_TRUE(found.changes[1].anyway);
}

TEST_F(what_if_of_a_site, knows_every_kind_of_object) {
  const std::vector<ledger_proposal> items{
      set_number(track_path("r", "a"), 1),
      set_number(track_path("r", "type/route/0x2/a"), 1),
      set_text(track_path("r", "type/route/0x2/info/vrf"), "red"),
      set_tuple(track_path("r", "type/route/0x2/info/ip_address"), {0x000200c0, 0x00ffffff}),
      set_number(track_path("p", "a"), 1),
      set_number(track_path("p", "type/prb/0x5/op_id"), 7),
      set_number(track_path("b", "a"), 1),
      set_tuple(track_path("b",
                           "type/bfdprb/0x9/rate/0x32/debounce_count/0x3/Interface/eth9/"
                           "destaddress"),
                {0x010200c0})};
  ASSERT_EQ(commit(items), 0);
  field::advance(std::chrono::seconds(3));
  what_if::question asked = ask();
  for (const char* name : {"r", "p", "b"}) {
    asked = with(asked, name, track_state::up);
  }
  const what_if::answer found = answer_to(asked);
  EXPECT_THAT(found.unmet, IsEmpty());
  EXPECT_THAT(lines_of(found), ElementsAre("after 0 b up", "after 0 p up", "after 0 r up"));
}

TEST_F(what_if_of_a_site, says_which_object_cannot_come_to_the_state) {
  for (const auto& [name, mask] :
       {std::pair{"wide", 0x0000ffffU}, std::pair{"narrow", 0xffffffU}}) {
    ASSERT_EQ(commit({set_number(track_path(name, "a"), 1),
                      set_number(track_path(name, "type/route/0x2/a"), 1),
                      set_tuple(track_path(name, "type/route/0x2/info/ip_address"), {10, mask})}),
              0);
  }
  field::route_added("10.0.0.0", 24, "eth0");
  field::advance(std::chrono::seconds(1));
  EXPECT_THAT(answer_to(with(ask(), "wide", track_state::up)).unmet, ElementsAre("wide"));
}

TEST_F(what_if_of_a_site, says_why_a_change_of_the_configuration_is_refused) {
  what_if::question asked = ask();
  asked.changes = {set_number(track_path("uplink", "type/list/0x3/a"), 1)};
  EXPECT_THAT(answer_to(asked).refusal, testing::HasSubstr("/uplink/type/list/0x3/a"));
}

TEST_F(what_if_of_a_site, has_new_tracks_and_tracks_that_are_gone) {
  what_if::question asked = ask();
  asked.changes = {set_number(track_path("site", "a"), 1),
                   set_number(track_path("site", "type/list/0x4/a"), 1),
                   set_number(track_path("site", "type/list/0x4/object/uplink/a"), 0)};
  EXPECT_THAT(lines_of(answer_to(asked)), ElementsAre("after 0 site unknown", "after 20 site up"));
}

}  // namespace
}  // namespace ot::test
