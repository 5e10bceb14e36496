// BFD configuration that waits for the engine's connection, and what the connection does to it.
#include "config/delays.h"
#include "core/track.h"
#include "sources/bfd/track.h"
#include "tests/unit/sources/bfd/fixture.h"

namespace ot::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

// The client is not connected when the test begins.
class bfd_queue : public bfd_service {
 protected:
  void SetUp() override {
    bfd_service::SetUp();
    disconnect();
  }
  static void connect() {
    field::bfd_client_connects(true);
    field::run_pending();
  }
  static void disconnect() {
    field::bfd_client_connects(false);
    field::run_pending();
  }
};

TEST_F(bfd_queue, configuration_waits_without_a_track) {
  trace();
  ASSERT_EQ(configure("t"), 0);
  EXPECT_THAT(field::take_traces(),
              contains_in_order(text_lines{
                  "(object_tracking_type_bfdprb_create) track t:",
                  "(object_tracking_type_bfdprb_create) Still not connected to BFD server",
                  "(object_tracking_type_bfdprb_create) :Enqueueing: track t, if: Gi1,  ip "
                  "10.0.0.2"}));
  EXPECT_EQ(bfd_cfg_count(), 1U);
  EXPECT_EQ(is_bfd_config_pending, 1U);
  EXPECT_EQ(hash_db_get_track_item("t"), nullptr);
  EXPECT_EQ(field::bfd_requests(), 0U);
}

TEST_F(bfd_queue, the_connection_makes_everything_that_waits_in_order) {
  ASSERT_EQ(configure("a"), 0);
  ASSERT_EQ(configure("b", "10.0.0.3"), 0);
  ASSERT_EQ(configure("c"), 0);
  trace();
  connect();
  EXPECT_THAT(
      field::take_traces(),
      contains_in_order(text_lines{
          "Entering (ot_bfd_create_all_sessions) : ", "(ot_bfd_create_all_sessions) track a:",
          "Entering (ot_create_bfd_track_entry) : ", "(ot_bfd_create_all_sessions) track b:",
          "(ot_bfd_create_all_sessions) track c:"}));
  EXPECT_EQ(bfd_cfg_count(), 0U);
  EXPECT_EQ(is_bfd_config_pending, 0U);
  EXPECT_THAT(followers(entry()), ElementsAre("c", "a"));
  EXPECT_THAT(field::bfd_wanted_sessions(),
              ElementsAre(field::bfd_wanted_session{gi1, peer, 300, 3},
                          field::bfd_wanted_session{gi1, "10.0.0.3", 300, 3}));
  EXPECT_EQ(track("b").configured_type, 9U);
  peer_answers("10.0.0.3");
  EXPECT_EQ(published("b"), 1U);
}

TEST_F(bfd_queue, configuration_counts_as_waiting_until_all_of_it_is_made) {
  ASSERT_EQ(configure("a"), 0);
  ASSERT_EQ(configure("b", "10.0.0.3"), 0);
  std::vector<std::uint32_t> pending;
  field::watch_traces([&](const std::string& line) {
    if (line.starts_with("(ot_bfd_create_all_sessions) track ")) {
      pending.push_back(is_bfd_config_pending);
    }
  });
  trace();
  connect();
  EXPECT_THAT(pending, ElementsAre(1U, 1U));
  EXPECT_EQ(is_bfd_config_pending, 0U);
}

TEST_F(bfd_queue, a_connection_with_nothing_waiting_makes_nothing) {
  trace();
  connect();
  EXPECT_EQ(is_ot_bfd_connection_up, 1U);
  EXPECT_EQ(field::bfd_requests(), 0U);
  EXPECT_THAT(field::take_traces(), Not(Contains(HasSubstr("ot_bfd_create_all_sessions"))));
}

TEST_F(bfd_queue, deleting_what_waits_does_nothing) {
  ASSERT_EQ(configure("t"), 0);
  trace();
  ASSERT_EQ(commit({remove_item(session_item("t"))}), 0);
  EXPECT_THAT(field::take_traces(),
              contains_in_order(text_lines{
                  "Entering (object_tracking_type_bfdprb_delete) : ",
                  "(object_tracking_type_bfdprb_delete) Still not connected to BFD server"}));
  EXPECT_EQ(bfd_cfg_count(), 1U);
  connect();
  EXPECT_THAT(followers(entry()), ElementsAre("t"));
}

// It holds for every BFD track, not only for those that wait.
TEST_F(bfd_queue, while_anything_waits_no_session_is_given_up) {
  connect();
  ASSERT_EQ(configure("old", "10.0.0.3"), 0);
  peer_answers("10.0.0.3");
  disconnect();
  ASSERT_EQ(configure("new"), 0);
  take_events();
  ASSERT_EQ(commit({remove_item(session_item("old"))}), 0);
  EXPECT_EQ(field::bfd_requests(), 1U);
  EXPECT_NE(entry("10.0.0.3"), nullptr);
  connect();
  EXPECT_EQ(published("old"), 1U);
}

TEST_F(bfd_queue, a_track_that_exists_stops_the_drain) {
  ASSERT_EQ(object_tracking_set_create_track_delay("b", 1, 1, true), 0);
  ASSERT_EQ(configure("a"), 0);
  ASSERT_EQ(configure("b"), 0);
  ASSERT_EQ(configure("c"), 0);
  trace();
  connect();
  EXPECT_THAT(field::take_traces(),
              contains_in_order(text_lines{
                  "(ot_bfd_create_all_sessions) track b:",
                  "(ot_create_bfd_track_entry) :  Track b already exists ",
                  "(1: ot_bfd_create_all_sessions) : ot_create_bfd_track_entry failed::Unknown "
                  "code 0xffffffff"}));
  EXPECT_EQ(track("b").type, track_type::none);
  EXPECT_EQ(hash_db_get_track_item("c"), nullptr);
  EXPECT_EQ(bfd_cfg_count(), 1U);
  EXPECT_EQ(is_bfd_config_pending, 0U);
  // What was left behind is made with the next configuration that had to wait.
  disconnect();
  ASSERT_EQ(configure("d"), 0);
  connect();
  EXPECT_THAT(followers(entry()), ElementsAre("d", "c", "a"));
}

TEST_F(bfd_queue, a_session_that_cannot_be_requested_does_not_stop_the_drain) {
  ASSERT_EQ(configure("a"), 0);
  ASSERT_EQ(configure("b", "10.0.0.3"), 0);
  field::fail_next("bfdc_session_create_nb", 5);
  trace();
  connect();
  EXPECT_THAT(field::take_traces(),
              Contains("(ot_bfd_create_all_sessions) : object_tracking_set_track_state_in_ledger "
                       "failed"));
  EXPECT_EQ(track("a").object.bfd.session_id, 0U);
  EXPECT_NE(track("b").object.bfd.session_id, 0U);
}

TEST_F(bfd_queue, another_connection_status_changes_nothing) {
  ASSERT_EQ(configure("t"), 0);
  trace();
  field::bfd_says_status(2);
  field::run_pending();
  EXPECT_THAT(field::take_traces(), Contains("(ot_bfd_conn_handler) invalid connection status"));
  EXPECT_EQ(is_ot_bfd_connection_up, 0U);
  EXPECT_EQ(bfd_cfg_count(), 1U);
}

TEST_F(bfd_queue, a_service_that_ends_leaves_nothing_waiting) {
  ASSERT_EQ(configure("t"), 0);
  stop();
  EXPECT_EQ(bfd_cfg_count(), 0U);
  EXPECT_EQ(is_bfd_config_pending, 0U);
}

TEST_F(bfd_queue, a_start_without_a_connection_queues_the_stored_configuration) {
  ASSERT_EQ(configure("t"), 0);
  field::fail_next("process_wait", 1);
  ASSERT_EQ(restart(), 0);
  EXPECT_EQ(bfd_cfg_count(), 1U);
  connect();
  EXPECT_THAT(followers(entry()), ElementsAre("t"));
}

TEST_F(bfd_queue, a_start_whose_client_is_not_connected_in_time_goes_on_without_it) {
  ASSERT_EQ(configure("t"), 0);
  stop();
  field::bfd_client_connects(true);
  field::fail_next("process_wait", 1);
  ASSERT_EQ(start(2), 0);
  EXPECT_EQ(bfd_cfg_count(), 0U);  // connected meanwhile
  EXPECT_THAT(followers(entry()), ElementsAre("t"));
}

}  // namespace
}  // namespace ot::test
