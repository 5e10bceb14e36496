// The last changes of published states, and what each was caused by.
#include "state/history.h"

#include <chrono>

#include "core/wall_clock.h"
#include "platform/memory/controls.h"
#include "state/publication.h"
#include "tests/unit/service_fixture.h"

namespace ot::test {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::int64_t start_time = 1'700'000'000;

class noted_changes : public service_fixture {
 protected:
  void SetUp() override {
    field::set_wall_clock(start_time);
    ASSERT_EQ(start(), 0);
    field::interface_added("eth0");
    field::run_pending();
  }
  // "t unknown>up configuration"
  static text_lines changes() {
    constexpr const char* states[] = {"unknown", "up", "down"};
    constexpr const char* causes[] = {"object", "delay", "list", "configuration", "restart"};
    text_lines lines;
    const history_extent kept = state_history();
    for (std::uint64_t number = kept.first; number <= kept.last; ++number) {
      const state_change& change = state_change_at(number);
      lines.push_back(std::string(change.track.view()) + " " + states[change.from] + ">" +
                      states[change.to] + " " + causes[static_cast<unsigned>(change.cause)]);
    }
    return lines;
  }
  static void publish(const char* name, track_state state) {
    ASSERT_EQ(object_tracking_set_track_state_in_ledger_after_timer_expired(name, state), 0);
  }
  void make_track(const std::string& name) {
    ASSERT_EQ(commit(interface_track(name, "eth0")), 0);
    field::run_pending();
  }
};

TEST_F(noted_changes, begins_with_the_service) {
  EXPECT_THAT(changes(), IsEmpty());
  EXPECT_EQ(wall_clock_at(state_history().since_ms), start_time * 1000);
}

TEST_F(noted_changes, tells_configuration_and_object_apart) {
  make_track("t");
  field::link_down("eth0");
  field::run_pending();
  ASSERT_EQ(delete_track("t"), 0);
  EXPECT_THAT(changes(), ElementsAre("t unknown>up configuration", "t up>down object"));
}

TEST_F(noted_changes, begins_with_the_first_known_state_of_a_track) {
  ASSERT_EQ(commit(interface_track("t", "eth7")), 0);
  field::run_pending();
  EXPECT_THAT(changes(), IsEmpty());
  field::interface_added("eth7");
  field::run_pending();
  EXPECT_THAT(changes(), ElementsAre("t unknown>up object"));
}

TEST_F(noted_changes, names_the_configuration_that_takes_a_track_away) {
  make_track("t");
  ASSERT_EQ(delete_track("t"), 0);
  EXPECT_THAT(changes(), ElementsAre("t unknown>up configuration", "t up>unknown configuration"));
}

TEST_F(noted_changes, dates_a_delayed_change_when_it_is_published) {
  make_track("t");
  ASSERT_EQ(commit({set_number(track_path("t", "delay_down"), 3)}), 0);
  field::link_down("eth0");
  field::advance(3500ms);
  EXPECT_THAT(changes(), ElementsAre("t unknown>up configuration", "t up>down delay"));
  const state_change& last = state_change_at(2);
  EXPECT_EQ(wall_clock_at(last.when_ms), start_time * 1000 + 3000);
  EXPECT_EQ(track("t").seconds_last_change, start_time + 3);
}

TEST_F(noted_changes, go_along_when_the_wall_clock_is_set) {
  make_track("t");
  field::advance(10s);
  field::link_down("eth0");
  field::run_pending();
  field::advance(5s);
  for (const std::int64_t now : {start_time + 3600, start_time - 86400, std::int64_t{90}}) {
    field::set_wall_clock(now);
    EXPECT_EQ(wall_clock_at(state_change_at(1).when_ms), (now - 15) * 1000);
    EXPECT_EQ(wall_clock_at(state_change_at(2).when_ms), (now - 5) * 1000);
    EXPECT_EQ(wall_clock_at(state_history().since_ms), (now - 15) * 1000);
  }
}

TEST_F(noted_changes, names_the_calculation_of_a_list) {
  make_track("t");
  ASSERT_EQ(commit({set_number(track_path("l", "a"), 1),
                    set_number(track_path("l", "type/list/0x4/a"), 1),
                    set_number(track_path("l", "type/list/0x4/object/t/a"), 0)}),
            0);
  field::advance(20ms);
  EXPECT_THAT(changes(), ElementsAre("t unknown>up configuration", "l unknown>up list"));
}

TEST_F(noted_changes, names_the_start_with_a_stored_configuration_and_begins_anew) {
  make_track("t");
  field::link_down("eth0");
  field::run_pending();
  field::advance(5s);
  stop();
  field::link_up("eth0");
  ASSERT_EQ(start(2), 0);
  field::run_pending();
  EXPECT_THAT(changes(), ElementsAre("t down>up restart"));
  EXPECT_EQ(wall_clock_at(state_history().since_ms), start_time * 1000 + 5000);
}

TEST_F(noted_changes, takes_no_notice_of_a_state_that_is_published_again) {
  make_track("t");
  publish("t", track_state::up);
  EXPECT_THAT(changes(), ElementsAre("t unknown>up configuration"));
}

TEST_F(noted_changes, keeps_the_last_4096) {
  make_track("t");
  for (std::uint32_t change = 0; change < history_size + 1; ++change) {
    publish("t", change % 2 == 0 ? track_state::down : track_state::up);
  }
  const history_extent kept = state_history();
  EXPECT_EQ(kept.last, history_size + 2);
  EXPECT_EQ(kept.last - kept.first + 1, history_size);
  EXPECT_EQ(state_change_at(kept.first).to, 1U);
  EXPECT_EQ(state_change_at(kept.last).to, 2U);
}

}  // namespace
}  // namespace ot::test
