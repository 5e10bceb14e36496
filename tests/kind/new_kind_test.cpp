// A new kind of tracks is a row: configured, published, delayed, listed, shown and deleted by the
// service as it is.
#include "core/track_kind.h"
#include "oper/records/build.h"
#include "platform/component_status.h"
#include "platform/memory/controls.h"
#include "show/show.h"
#include "tests/kind/flag_kind.h"
#include "tests/unit/service_fixture.h"
#include "tests/unit/show/output.h"

namespace ot::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

class new_kind : public service_fixture {
 protected:
  new_kind() { flag_calls = {}; }
  void SetUp() override { ASSERT_EQ(start(), 0); }

  int set_flag(const std::string& track, std::uint32_t value) {
    return commit({set_number(track_path(track, "a"), 1),
                   set_number(track_path(track, "type/flag/0xa/value"), value)});
  }

  static std::string shown(const char* track, const char* view) {
    return printed([&] {
      const char* words[] = {"object_tracking", "show", "track", track, view, nullptr};
      ot_show(5, const_cast<char**>(words));
    });
  }
};

TEST_F(new_kind, is_configured_and_published) {
  take_events();
  ASSERT_EQ(set_flag("maintenance", 1), 0);
  EXPECT_EQ(published("maintenance"), 1U);
  EXPECT_EQ(track("maintenance").type, flag_type);
  ASSERT_EQ(set_flag("maintenance", 0), 0);
  EXPECT_EQ(published("maintenance"), 2U);
  EXPECT_THAT(take_events(), ElementsAre("maintenance 1", "maintenance 2"));
}

TEST_F(new_kind, is_refused_another_type_by_the_common_verifier) {
  ASSERT_EQ(set_flag("maintenance", 1), 0);
  EXPECT_EQ(commit({set_number(track_path("maintenance", "type/interface/0x1/a"), 1)}),
            track_type_conflict);
}

TEST_F(new_kind, is_a_member_of_lists) {
  ASSERT_EQ(set_flag("maintenance", 1), 0);
  ASSERT_EQ(commit({set_number(track_path("all", "a"), 1),
                    set_number(track_path("all", "type/list/0x3/object/maintenance/a"), 0)}),
            0);
  field::advance(std::chrono::milliseconds{20});
  EXPECT_EQ(published("all"), 1U);
  ASSERT_EQ(set_flag("maintenance", 0), 0);
  field::advance(std::chrono::milliseconds{20});
  EXPECT_EQ(published("all"), 2U);
}

TEST_F(new_kind, has_delays_of_which_the_least_is_its_own) {
  ASSERT_EQ(set_flag("maintenance", 0), 0);
  ASSERT_EQ(commit({set_number(track_path("maintenance", "delay_up"), 0)}), 0);
  EXPECT_EQ(track("maintenance").delay_up, 3U);
  ASSERT_EQ(set_flag("maintenance", 1), 0);
  field::advance(std::chrono::seconds{2});
  EXPECT_EQ(published("maintenance"), 2U);
  field::advance(std::chrono::seconds{1});
  EXPECT_EQ(published("maintenance"), 1U);
}

TEST_F(new_kind, has_records) {
  ASSERT_EQ(set_flag("maintenance", 1), 0);
  track_info__* records = ot_get_tracks_by_type(flag_type);
  ASSERT_NE(records, nullptr);
  EXPECT_STREQ(records->TrackeName.c_str(), "maintenance");
  EXPECT_EQ(records->Type, flag_type);
  EXPECT_TRUE(records->TrackState);
  EXPECT_EQ(records->next, nullptr);
  ot_free_tracks(records);
}

TEST_F(new_kind, is_listed_by_its_key) {
  ASSERT_EQ(set_flag("maintenance", 1), 0);
  ASSERT_EQ(commit(interface_track("uplink", "Gi1")), 0);
  const std::string table = shown("type-flag", nullptr);
  EXPECT_THAT(table, HasSubstr("\nmaintenance "));
  EXPECT_THAT(table, testing::Not(HasSubstr("uplink")));
}

TEST_F(new_kind, is_shown_in_both_views) {
  ASSERT_EQ(set_flag("maintenance", 1), 0);
  EXPECT_THAT(shown("maintenance", nullptr),
              HasSubstr("\nmaintenance                      a flag                            "
                        "        flag             Up   \n"));
  EXPECT_EQ(shown("maintenance", "all"), "\nTrack maintenance \n\tFlag is UP \n");
}

TEST_F(new_kind, lets_go_of_its_object_when_the_track_is_deleted) {
  ASSERT_EQ(set_flag("maintenance", 1), 0);
  ASSERT_EQ(delete_track("maintenance"), 0);
  EXPECT_THAT(flag_calls.detached, ElementsAre("maintenance"));
  EXPECT_EQ(hash_db_get_track_item("maintenance"), nullptr);
  EXPECT_EQ(published("maintenance"), std::nullopt);
}

TEST_F(new_kind, keeps_a_track_that_cannot_be_detached) {
  ASSERT_EQ(set_flag("maintenance", 1), 0);
  flag_calls.detach_result = no_memory;
  trace();
  EXPECT_NE(delete_track("maintenance"), 0);
  EXPECT_THAT(field::take_traces(),
              Contains("(object_tracking_track_delete) : the flag stays - Cannot allocate memory"));
  EXPECT_NE(hash_db_get_track_item("maintenance"), nullptr);
}

TEST_F(new_kind, starts_and_stops_with_the_service) {
  EXPECT_EQ(flag_calls.tables_created, 1);
  EXPECT_EQ(flag_calls.tables_dropped, 0);
  ASSERT_EQ(set_flag("maintenance", 1), 0);
  stop();
  EXPECT_EQ(flag_calls.tables_dropped, 1);
  ASSERT_EQ(start(2), 0);
  EXPECT_EQ(track("maintenance").state, track_state::up);
}

}  // namespace
}  // namespace ot::test
