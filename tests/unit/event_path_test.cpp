// The path of one event through the whole service, on the in-memory router.
#include <chrono>

#include "platform/memory/controls.h"
#include "tests/unit/service_fixture.h"

namespace ot::test {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

class service_event_path : public running_service {
 protected:
  void SetUp() override {
    running_service::SetUp();
    field::interface_added("eth0");
    ASSERT_EQ(commit(interface_track("wan", "eth0")), 0);
    field::advance(100ms);
    take_notifications();
    take_events();
    forget_output();
  }
};

TEST_F(service_event_path, a_link_that_goes_down_is_published_everywhere) {
  ASSERT_EQ(published("wan"), 1u);
  field::link_down("eth0");
  field::run_pending();
  EXPECT_EQ(published("wan"), 2u);
  EXPECT_EQ(track("wan").state, track_state::down);
  EXPECT_THAT(field::take_messages(),
              ElementsAre("OT-SERVICES-6-TRACK_INFO: track wan state Track_Down"));
  EXPECT_THAT(take_events(), ElementsAre("wan 2"));

  field::advance(99ms);
  EXPECT_THAT(take_notifications(), IsEmpty());
  field::advance(1ms);
  EXPECT_THAT(take_notifications(), ElementsAre("wan set 2"));
}

TEST_F(service_event_path, a_restart_takes_the_configuration_and_the_states_over) {
  field::link_down("eth0");
  field::run_pending();
  ASSERT_EQ(restart(), 0);
  EXPECT_EQ(track("wan").state, track_state::down);
  EXPECT_EQ(published("wan"), 2u);
  field::link_up("eth0");
  field::run_pending();
  EXPECT_EQ(published("wan"), 1u);
}

TEST_F(service_event_path, a_deleted_track_leaves_no_item) {
  ASSERT_EQ(delete_track("wan"), 0);
  EXPECT_EQ(hash_db_get_track_item("wan"), nullptr);
  EXPECT_EQ(published("wan"), std::nullopt);
  field::advance(100ms);
  EXPECT_THAT(take_notifications(), ElementsAre("wan set 0", "wan delete 0"));
}

}  // namespace
}  // namespace ot::test
