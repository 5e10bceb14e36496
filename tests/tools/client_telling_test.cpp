// What a follower of the C library tells of states and events, in whatever order they come.
#include "tools/client/telling.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

namespace ot::client {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr bool asked = true;

// "up office (unknown)": an event, its track, and what it was before.
std::vector<std::string> told(telling& follower) {
  constexpr const char* kinds[] = {"", "state", "synced", "deleted", "lost", "resync"};
  constexpr const char* states[] = {"unknown", "up", "down"};
  std::vector<std::string> all;
  while (const otrack_event* event = follower.next()) {
    const bool state = event->kind == OTRACK_EVENT_STATE;
    std::string text = state ? states[event->state] : kinds[event->kind];
    if (*event->track != '\0') {
      text += std::string(" ") + event->track + " (" + states[event->previous] + ")";
    }
    all.push_back(text);
  }
  return all;
}

telling begun(const track_states& present, std::vector<std::string> names = {}) {
  telling follower(std::move(names));
  follower.take_states(present);
  (void)told(follower);
  return follower;
}

TEST(client_telling, the_first_states_are_told_and_those_that_come_again) {
  telling follower({});
  follower.take_states({{"a", 1}, {"b", 0}});
  EXPECT_THAT(told(follower), ElementsAre("up a (unknown)", "unknown b (unknown)", "synced"));
  follower.lose();
  follower.take_states({{"a", 1}});
  EXPECT_THAT(told(follower), ElementsAre("lost", "resync", "up a (unknown)", "synced"));
}

TEST(client_telling, a_state_is_told_once) {
  telling follower = begun({{"a", 1}});
  follower.take_event({"a", 1}, !asked);
  follower.take_states({{"a", 1}});
  EXPECT_THAT(told(follower), IsEmpty());
  follower.take_event({"a", 2}, !asked);
  follower.take_states({{"a", 1}});
  EXPECT_THAT(told(follower), ElementsAre("down a (up)", "up a (down)"));
}

TEST(client_telling, states_that_may_be_older_than_an_event_tell_nothing_of_its_track) {
  telling follower = begun({{"a", 1}, {"b", 1}});
  follower.ask();
  follower.take_event({"a", 2}, asked);
  follower.take_states({{"a", 1}, {"b", 2}});
  EXPECT_THAT(told(follower), ElementsAre("down a (up)", "down b (up)"));
  EXPECT_FALSE(follower.wants_states());
  follower.ask();
  follower.take_states({{"a", 1}, {"b", 2}});
  EXPECT_THAT(told(follower), ElementsAre("up a (down)"));
}

TEST(client_telling, whether_a_track_with_an_event_is_gone_is_asked_again) {
  telling follower = begun({{"a", 1}});
  follower.ask();
  follower.take_event({"a", 2}, asked);
  follower.take_states({});
  EXPECT_THAT(told(follower), ElementsAre("down a (up)"));
  EXPECT_TRUE(follower.wants_states());
  follower.ask();
  EXPECT_FALSE(follower.wants_states());
  follower.take_states({});
  EXPECT_THAT(told(follower), ElementsAre("deleted a (down)"));
}

TEST(client_telling, events_of_a_new_track_and_of_no_state_want_states) {
  telling follower = begun({{"a", 1}});
  follower.take_event({"a", 1}, !asked);
  EXPECT_FALSE(follower.wants_states());
  follower.take_event({"a", 0}, !asked);
  EXPECT_TRUE(follower.wants_states());
  follower.ask();
  follower.take_event({"b", 1}, !asked);
  EXPECT_TRUE(follower.wants_states());
  EXPECT_THAT(told(follower), IsEmpty());
}

TEST(client_telling, tracks_of_other_names_are_nothing) {
  telling follower = begun({{"a", 1}, {"b", 1}}, {"c", "a", "c"});
  EXPECT_THAT(follower.names(), ElementsAre("a", "c"));
  follower.take_event({"b", 2}, !asked);
  EXPECT_FALSE(follower.wants_states());
  follower.take_states({{"a", 2}, {"b", 2}, {"d", 1}});
  EXPECT_THAT(told(follower), ElementsAre("down a (up)"));
}

TEST(client_telling, only_what_was_synced_is_told_to_be_lost) {
  telling follower({});
  follower.lose();
  EXPECT_TRUE(follower.empty());
  follower.take_states({{"a", 1}});
  EXPECT_TRUE(follower.synced());
  follower.lose();
  follower.lose();
  EXPECT_FALSE(follower.synced());
  EXPECT_THAT(told(follower), ElementsAre("up a (unknown)", "synced", "lost"));
}

TEST(client_telling, events_from_before_the_first_states_are_told_behind_them) {
  telling follower({});
  follower.take_event({"a", 2}, asked);
  follower.take_states({{"a", 1}, {"b", 1}});
  EXPECT_THAT(told(follower),
              ElementsAre("up a (unknown)", "up b (unknown)", "synced", "down a (up)"));
  follower.lose();
  follower.take_event({"b", 2}, asked);
  follower.lose();
  follower.take_states({{"b", 1}});
  EXPECT_THAT(told(follower), ElementsAre("lost", "resync", "up b (unknown)", "synced"));
}

TEST(client_telling, a_track_is_in_a_state_until_it_has_another_or_is_no_more) {
  std::set<std::string> there;
  const auto note = [&there](std::uint32_t kind, std::uint32_t state, const char* track) {
    otrack_event event{};
    event.kind = kind;
    event.state = state;
    event.track = track;
    note_track(event, OTRACK_UP, there);
    return there;
  };
  EXPECT_THAT(note(OTRACK_EVENT_STATE, OTRACK_UP, "a"), ElementsAre("a"));
  EXPECT_THAT(note(OTRACK_EVENT_STATE, OTRACK_UP, "b"), ElementsAre("a", "b"));
  EXPECT_THAT(note(OTRACK_EVENT_SYNCED, OTRACK_UNKNOWN, ""), ElementsAre("a", "b"));
  EXPECT_THAT(note(OTRACK_EVENT_STATE, OTRACK_DOWN, "a"), ElementsAre("b"));
  EXPECT_THAT(note(OTRACK_EVENT_DELETED, OTRACK_UNKNOWN, "b"), IsEmpty());
}

}  // namespace
}  // namespace ot::client
