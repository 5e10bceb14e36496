// What all sources share: passing an object's state on to the tracks that follow it.
#include "sources/objects.h"

#include "platform/memory/controls.h"
#include "tests/unit/service_fixture.h"

namespace ot::test {
namespace {

class following_tracks : public running_service {};

TEST_F(following_tracks, that_have_the_state_already_are_not_published_again) {
  field::interface_added("Gi1", true);
  ASSERT_EQ(commit(interface_track("t", "Gi1")), 0);
  track("t").state = track_state::down;  // as if the change were held back
  const std::uint32_t publications = track("t").state_change_counter;
  track_name_node* followers = new_track_name_node("t");
  set_following_tracks(followers, track_state::up, "test");
  EXPECT_EQ(track("t").state_change_counter, publications);
  EXPECT_EQ(track("t").state, track_state::down);
  set_following_tracks(followers, track_state::unknown, "test");
  EXPECT_EQ(track("t").source_state, track_state::unknown);
  EXPECT_EQ(track("t").state_change_counter, publications + 1);
  free_track_names(followers);
}

}  // namespace
}  // namespace ot::test
