// BFD tracks while the engine is there: their sessions, their states, their end.
#include "sources/bfd/track.h"

#include "config/lifecycle.h"
#include "platform/memory/ledger_controls.h"
#include "tests/unit/sources/bfd/fixture.h"

namespace ot::test {
namespace {

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

class bfd_track : public bfd_service {
 protected:
  int delete_whole(const std::string& name) {
    return commit({remove_item(session_item(name)), remove_item(track_path(name, "a"))});
  }
  int configure_whole(const std::string& name, const char* address = peer) {
    return commit(
        {set_number(track_path(name, "a"), 1), set_tuple(session_item(name), {ip(address)})});
  }
};

TEST_F(bfd_track, follows_its_session_up_and_down) {
  ASSERT_EQ(configure("t"), 0);
  take_events();
  forget_output();
  peer_answers();
  EXPECT_EQ(published("t"), 1U);
  EXPECT_EQ(track("t").source_state, track_state::up);
  EXPECT_EQ(entry()->state, 1U);
  peer_silent();
  EXPECT_EQ(published("t"), 2U);
  EXPECT_EQ(entry()->state, 2U);
  EXPECT_THAT(take_events(), ElementsAre("t 1", "t 2"));
  EXPECT_THAT(field::take_messages(),
              ElementsAre("OT-SERVICES-6-TRACK_INFO: track t state Track_Up",
                          "OT-SERVICES-6-TRACK_INFO: track t state Track_Down"));
}

TEST_F(bfd_track, a_session_whose_peer_answers_already_comes_up_after_its_creation) {
  field::bfd_peer_answers("Gi1", peer);
  ASSERT_EQ(configure("t"), 0);
  EXPECT_EQ(published("t"), 1U);
}

TEST_F(bfd_track, a_repeated_state_publishes_nothing) {
  ASSERT_EQ(configure("t"), 0);
  peer_answers();
  take_events();
  const std::uint32_t publications = track("t").state_change_counter;
  field::bfd_says_event({bfdc_event_session_state, gi1, ipv4_bfd_address(ip(peer)), 0});
  field::run_pending();
  EXPECT_EQ(track("t").state_change_counter, publications);
  EXPECT_THAT(take_events(), IsEmpty());
}

TEST_F(bfd_track, any_other_session_state_than_0_is_down) {
  ASSERT_EQ(configure("t"), 0);
  for (const std::uint32_t state : {1U, 2U, 0xFFFFFFFFU}) {
    peer_answers();
    field::bfd_says_event({bfdc_event_session_state, gi1, ipv4_bfd_address(ip(peer)), state});
    field::run_pending();
    EXPECT_EQ(published("t"), 2U) << state;
    peer_silent();
  }
}

TEST_F(bfd_track, delays_hold_its_changes_back) {
  ASSERT_EQ(configure("t"), 0);
  ASSERT_EQ(commit({set_number(track_path("t", "delay_up"), 5)}), 0);
  peer_answers();
  field::advance(4s);
  EXPECT_EQ(published("t"), std::nullopt);
  field::advance(1s);
  EXPECT_EQ(published("t"), 1U);
}

TEST_F(bfd_track, tracks_of_one_session_share_its_entry_and_the_newest_follows_it) {
  ASSERT_EQ(configure("a"), 0);
  peer_answers();
  trace();
  ASSERT_EQ(configure("b"), 0);
  EXPECT_THAT(field::take_traces(),
              Contains("(insert_track_to_bfdprb_entry) bfdprb lookup != NULL"));
  EXPECT_THAT(followers(entry()), ElementsAre("b", "a"));
  EXPECT_EQ(hash_db_count(bfdprb_table), 1U);
  EXPECT_EQ(track("a").object.bfd.session_id, track("b").object.bfd.session_id);
  EXPECT_EQ(published("b"), 1U);
  peer_silent();
  EXPECT_EQ(published("b"), 2U);
  EXPECT_EQ(published("a"), 1U);
}

TEST_F(bfd_track, the_context_names_the_track_of_the_latest_request) {
  ASSERT_NE(ot_bfd_ctx.load(), nullptr);
  ASSERT_EQ(configure("a"), 0);
  EXPECT_EQ(*ot_bfd_ctx.load(), "a");
  const std::string longest(39, 'b');
  ASSERT_EQ(configure(longest, "10.0.0.3"), 0);
  EXPECT_EQ(*ot_bfd_ctx.load(), longest.c_str());
  ASSERT_EQ(commit({remove_item(session_item("a"))}), 0);
  EXPECT_EQ(*ot_bfd_ctx.load(), "a");
}

TEST_F(bfd_track, deleting_one_of_two_ends_the_session_of_both) {
  ASSERT_EQ(configure_whole("a"), 0);
  ASSERT_EQ(configure_whole("b"), 0);
  ASSERT_EQ(delete_whole("a"), 0);
  EXPECT_EQ(entry(), nullptr);
  EXPECT_THAT(field::bfd_wanted_sessions(), IsEmpty());
  EXPECT_EQ(track("b").type, track_type::bfd);
}

TEST_F(bfd_track, sessions_of_other_destinations_and_interfaces_are_their_own) {
  const std::uint32_t gi2 = field::interface_added("Gi2");
  field::run_pending();
  ASSERT_EQ(configure("a"), 0);
  ASSERT_EQ(configure("b", "10.0.0.3"), 0);
  ASSERT_EQ(commit({set_tuple(session_item("c", "Gi2"), {ip(peer)})}), 0);
  EXPECT_EQ(hash_db_count(bfdprb_table), 3U);
  EXPECT_THAT(followers(hash_db_get_bfdprb_item(gi2, ipv4_bfd_address(ip(peer)))),
              ElementsAre("c"));
}

TEST_F(bfd_track, deleting_an_up_track_publishes_down_and_leaves_nothing) {
  ASSERT_EQ(configure_whole("t"), 0);
  peer_answers();
  take_events();
  trace();
  ASSERT_EQ(delete_whole("t"), 0);
  EXPECT_THAT(take_events(), ElementsAre("t 2"));
  EXPECT_EQ(hash_db_get_track_item("t"), nullptr);
  EXPECT_EQ(entry(), nullptr);
  EXPECT_EQ(published("t"), std::nullopt);
  EXPECT_THAT(field::bfd_wanted_sessions(), IsEmpty());
  // The record goes after its session has been given up twice: for the item and for the track.
  const std::string second =
      "(ot_bfd_req_handler) hash_db_delete_bfdprb_item failed with error: Invalid argument";
  EXPECT_THAT(
      field::take_traces(),
      contains_in_order(text_lines{
          " Found track_type : BFD_PRB. for track name t  Delete this track from bfdprb entry",
          "Entering (object_tracking_type_bfdprb_delete) : ",
          "(ot_bfd_req_handler):BFD Context is NULL", "(ot_bfd_req_handler):BFD Context is NULL",
          second}));
}

TEST_F(bfd_track, a_track_whose_session_cannot_be_given_up_stays) {
  ASSERT_EQ(configure("t"), 0);
  trace();
  field::fail_next("bfdc_session_delete_unconfig_nb", 5);
  EXPECT_EQ(object_tracking_track_delete("t"), 5);
  EXPECT_THAT(field::take_traces(),
              contains_in_order(text_lines{
                  "(ot_bfd_delete_single_session) bfd session deletion failed:: Input/output error",
                  "(object_tracking_type_bfdprb_delete) : ot_bfd_create_single_seccion failed",
                  "(object_tracking_track_delete) : object_tracking_type_bfdprb_delete failed - "
                  "Input/output error"}));
  EXPECT_NE(hash_db_get_track_item("t"), nullptr);
  EXPECT_NE(entry(), nullptr);
}

TEST_F(bfd_track, a_request_that_is_not_taken_leaves_the_track_without_a_session) {
  trace();
  field::fail_next("bfdc_session_create_nb", 5);
  EXPECT_NE(configure("call"), 0);
  EXPECT_THAT(
      field::take_traces(),
      contains_in_order(text_lines{
          "(ot_bfd_create_single_session) bfd session creation failed:: Input/output error",
          "(object_tracking_type_bfdprb_create) : object_tracking_set_track_state_in_ledger "
          "failed"}));
  field::fail_next("bfdc_session_create_nb", 0, 5);
  EXPECT_NE(configure("answer", "10.0.0.3"), 0);
  EXPECT_THAT(field::take_traces(),
              Contains("(ot_bfd_create_single_session) bfd session creation failed:: "
                       "Input/output error"));
  for (const char* name : {"call", "answer"}) {
    EXPECT_EQ(track(name).object.bfd.session_id, 0U) << name;
    EXPECT_EQ(track(name).state, track_state::down) << name;
  }
  EXPECT_NE(entry(), nullptr);
}

TEST_F(bfd_track, the_words_for_an_answer_are_those_of_creation_for_both_requests) {
  ASSERT_EQ(configure("t"), 0);
  trace();
  field::fail_next("bfdc_session_delete_unconfig_nb", 0, 5);
  EXPECT_EQ(object_tracking_type_bfdprb_delete("t"), 5);
  EXPECT_THAT(field::take_traces(),
              Contains("(ot_bfd_delete_single_session) bfd session creation failed:: "
                       "Input/output error"));
}

TEST_F(bfd_track, an_unknown_interface_has_a_handle_that_stands_for_its_name) {
  trace();
  ASSERT_EQ(commit({set_tuple(session_item("t", "Gi9"), {ip(peer)})}), 0);
  EXPECT_THAT(field::take_traces(),
              Contains("(ot_create_bfd_track_entry)  Handle is undefined for if:: Gi9 "));
  const std::uint32_t handle = track("t").object.bfd.ifhandle;
  EXPECT_GE(handle, 0x80000000U);
  EXPECT_NE(hash_db_get_bfdprb_item(handle, ipv4_bfd_address(ip(peer))), nullptr);
}

TEST_F(bfd_track, one_address_over_two_unknown_interfaces_is_two_sessions) {
  ASSERT_EQ(commit({set_tuple(session_item("t", "Gi8"), {ip(peer)})}), 0);
  ASSERT_EQ(commit({set_tuple(session_item("u", "Gi9"), {ip(peer)})}), 0);
  ASSERT_EQ(commit({set_tuple(session_item("v", "Gi9"), {ip(peer)})}), 0);
  EXPECT_EQ(field::bfd_wanted_sessions().size(), 2U);
  ASSERT_EQ(commit({remove_item(session_item("t", "Gi8"))}), 0);
  EXPECT_EQ(field::bfd_wanted_sessions().size(), 1U);
}

// --- Without an engine ---------------------------------------------------------------------------

TEST_F(bfd_track, is_made_down_and_deleted_without_an_engine) {
  engine_away();
  ASSERT_EQ(configure_whole("t"), 0);
  EXPECT_EQ(track("t").source_state, track_state::down);
  EXPECT_EQ(bfd_cfg_count(), 0U);
  ASSERT_EQ(delete_track("t"), 0);
  EXPECT_EQ(hash_db_get_track_item("t"), nullptr);
  EXPECT_THAT(field::bfd_wanted_sessions(), IsEmpty());
}

TEST_F(bfd_track, the_engine_gone_takes_tracks_down_and_back_brings_them_up) {
  ASSERT_EQ(configure("t"), 0);
  peer_answers();
  take_events();
  engine_away();
  EXPECT_EQ(is_ot_bfd_connection_up, 1U);
  EXPECT_EQ(published("t"), 2U);
  engine_back();
  EXPECT_EQ(is_ot_bfd_connection_up, 1U);
  EXPECT_EQ(published("t"), 1U);
  EXPECT_THAT(take_events(), ElementsAre("t 2", "t 1"));
  EXPECT_EQ(field::bfd_requests(), 1U);
}

TEST_F(bfd_track, made_again_before_the_deletion_is_confirmed_keeps_its_entry) {
  ASSERT_EQ(configure_whole("t"), 0);
  field::bfd_peer_answers("Gi1", peer);
  // Both commits run before any confirmation reaches the main thread.
  const std::vector<ledger_proposal> removal = {remove_item(session_item("t")),
                                                remove_item(track_path("t", "a"))};
  const std::vector<ledger_proposal> creation = {set_number(track_path("t", "a"), 1),
                                                 set_tuple(session_item("t"), {ip(peer)})};
  ASSERT_EQ(ledger_commit(ledger_get_default_conn(), removal, &refusals), 0);
  ASSERT_EQ(ledger_commit(ledger_get_default_conn(), creation, &refusals), 0);
  field::run_pending();
  EXPECT_NE(entry(), nullptr);
  EXPECT_EQ(published("t"), 1U);
  peer_silent();
  EXPECT_EQ(published("t"), 2U);
}

TEST_F(bfd_track, a_publication_that_fails_is_traced_on_every_path) {
  ASSERT_EQ(configure("t"), 0);
  trace();
  ledger_control_fail_next(ledger_operation::set, 5);
  peer_answers();
  EXPECT_THAT(field::take_traces(),
              Contains("(object_tracking_change_bfdprb_state) :Error updating state for t to "
                       "Track_Up"));
  EXPECT_EQ(track("t").source_state, track_state::up);
  ledger_control_fail_next(ledger_operation::set, 5);
  EXPECT_EQ(object_tracking_type_bfdprb_delete("t"), 0);
  EXPECT_THAT(field::take_traces(), Contains("(object_tracking_type_bfdprb_delete) : "
                                             "object_tracking_set_track_state_in_ledger failed"));
}

TEST_F(bfd_track, a_change_for_a_track_that_is_gone_is_traced) {
  ASSERT_EQ(configure("t"), 0);
  bfdprb_entry orphan = *entry();
  track_name_node node{track_name{"gone"}, nullptr};
  orphan.tracks = &node;
  trace();
  for (const auto& [state, text] :
       {std::pair{0U, "Unknown"}, {1U, "Track_Up"}, {2U, "Track_Down"}, {7U, ""}}) {
    orphan.state = state;
    object_tracking_change_bfdprb_state(orphan);
    EXPECT_THAT(field::take_traces(),
                contains_in_order(text_lines{
                    std::string{"(object_tracking_change_bfdprb_state) : track:gone state "} + text,
                    "(object_tracking_change_bfdprb_state) : track gone not found"}));
  }
}

// --- After a restart -----------------------------------------------------------------------------

TEST_F(bfd_track, a_restart_publishes_that_an_up_track_is_down_until_its_session_is_up) {
  ASSERT_EQ(configure_whole("t"), 0);
  peer_answers();
  forget_output();
  ASSERT_EQ(restart(), 0);
  EXPECT_EQ(published("t"), 1U);
  EXPECT_THAT(field::take_messages(),
              contains_in_order(text_lines{"OT-SERVICES-6-TRACK_INFO: track t state Track_Down",
                                           "OT-SERVICES-6-TRACK_INFO: track t state Track_Up"}));
  EXPECT_THAT(field::bfd_wanted_sessions(),
              ElementsAre(field::bfd_wanted_session{gi1, peer, 300, 3}));
}

TEST_F(bfd_track, a_restart_publishes_nothing_for_a_track_that_was_down) {
  ASSERT_EQ(configure_whole("t"), 0);
  peer_answers();
  peer_silent();
  stop();
  forget_output();
  ASSERT_EQ(start(2), 0);
  EXPECT_THAT(field::take_messages(), IsEmpty());
  EXPECT_EQ(track("t").state_change_counter, 0U);
}

TEST_F(bfd_track, stored_delays_are_applied_after_the_session_is_made) {
  ASSERT_EQ(configure_whole("t"), 0);
  ASSERT_EQ(commit({set_number(track_path("t", "delay_down"), 7)}), 0);
  peer_answers();
  ASSERT_EQ(restart(), 0);
  EXPECT_EQ(track("t").type, track_type::bfd);
  EXPECT_EQ(track("t").delay_down, 7U);
  EXPECT_EQ(published("t"), 1U);
}

}  // namespace
}  // namespace ot::test
