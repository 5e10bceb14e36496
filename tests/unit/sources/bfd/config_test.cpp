// The configuration item of a BFD track, through commits and called by hand.
#include "sources/bfd/track.h"

#include "config/delays.h"
#include "platform/component_status.h"
#include "tests/unit/sources/bfd/fixture.h"

namespace ot::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class bfd_config : public bfd_service {
 protected:
  // A change as the ledger hands it over, with the first `fields` of its path.
  int apply(std::uint32_t event, const char* old_address, const char* new_address,
            std::size_t fields = 5) {
    const ledger_path_field path[] = {{"t", 0}, {"0x9", 9}, {"0x32", 50}, {"0x5", 5}, {"Gi1", 0}};
    ledger_value values[2];
    const ledger_value* given[2] = {nullptr, nullptr};
    const char* const addresses[2] = {old_address, new_address};
    for (int i = 0; i < 2; ++i) {
      if (addresses[i] != nullptr) {
        EXPECT_EQ(ledger_value_assign(values[i], ledger_kind::tuple,
                                      bytes_of_numbers({ip(addresses[i])})),
                  0);
        given[i] = &values[i];
      }
    }
    ledger_change change;
    change.event = event;
    change.fields = {path, fields};
    change.old_value = given[0];
    change.new_value = given[1];
    ledger_verdict verdict;
    verdict.accept = 0;
    verified = object_tracking_type_bfdprb_verify(change, verdict);
    accepted = verdict.accept;
    const int status = object_tracking_type_bfdprb_apply(change);
    field::run_pending();
    return status;
  }
  int verified = 0;
  std::uint32_t accepted = 0;
};

TEST_F(bfd_config, the_item_makes_the_track_its_entry_and_its_session) {
  field::set_wall_clock(1'700'000'123);
  ASSERT_EQ(configure("t"), 0);
  const ot_track& made = track("t");
  EXPECT_EQ(made.type, track_type::bfd);
  EXPECT_EQ(made.configured_type, 9U);
  EXPECT_EQ(made.source_state, track_state::down);
  EXPECT_EQ(made.state, track_state::down);
  EXPECT_EQ(made.state_change_counter, 0U);
  EXPECT_EQ(made.seconds_last_change, 1'700'000'123);
  EXPECT_NE(made.delay_timer, nullptr);
  EXPECT_EQ(made.object.bfd.ifhandle, gi1);
  EXPECT_EQ(made.object.bfd.destination, ip(peer));
  EXPECT_EQ(made.object.bfd.session_id, 1U);
  EXPECT_EQ(made.object.bfd.rate, 300U);
  EXPECT_EQ(made.object.bfd.debounce_count, 3U);
  EXPECT_EQ(made.object.bfd.interface, "Gi1");
  EXPECT_THAT(followers(entry()), ElementsAre("t"));
  EXPECT_EQ(entry()->state, 2U);
  EXPECT_EQ(entry()->ifhandle, static_cast<std::int32_t>(gi1));
  EXPECT_THAT(field::bfd_wanted_sessions(),
              ElementsAre(field::bfd_wanted_session{gi1, peer, 300, 3}));
}

// Down is where a new track begins, so there is nothing to report.
TEST_F(bfd_config, a_new_track_publishes_nothing) {
  take_events();
  ASSERT_EQ(configure("t"), 0);
  EXPECT_THAT(take_events(), IsEmpty());
  EXPECT_EQ(published("t"), std::nullopt);
}

TEST_F(bfd_config, creating_traces_its_steps_in_order) {
  trace();
  ASSERT_EQ(configure("t"), 0);
  EXPECT_THAT(field::take_traces(),
              contains_in_order(text_lines{
                  "Entering (object_tracking_type_bfdprb_verify) : ",
                  "track_name:t type_num:9 rate:300 debounce:3 interface:Gi1",
                  "(object_tracking_type_bfdprb_verify) : ledger track type = BFDPRB",
                  "Entering (object_tracking_type_bfdprb_apply) : ",
                  "(object_tracking_type_bfdprb_apply) : LEDGER_EVENT_CREATE",
                  "(object_tracking_type_bfdprb_apply) : track t, if: Gi1,  ip 10.0.0.2",
                  "(object_tracking_type_bfdprb_create) track t:",
                  "Entering (ot_create_bfd_track_entry) : ",
                  "Entering (insert_track_to_bfdprb_entry) : ",
                  "(insert_track_to_bfdprb_entry) Creating new bfdprb\n ",
                  "calling hash_db_add_new_bfdprb_item ",
                  "(object_tracking_set_track_state_in_ledger) : track t state Track_Down",
                  "Event 1, interface Gi1, destination 10.0.0.2, seq_id 1",
              }));
}

TEST_F(bfd_config, the_tables_operations_trace_their_entry) {
  trace();
  ASSERT_EQ(configure("t"), 0);
  EXPECT_THAT(field::take_traces(),
              contains_in_order(text_lines{"Entering (hash_db_get_bfdprb_item) : ",
                                           "Entering (hash_db_add_new_bfdprb_item) : "}));
  ASSERT_EQ(commit({remove_item(session_item("t"))}), 0);
  EXPECT_THAT(field::take_traces(), Contains("Entering (hash_db_delete_bfdprb_item) : "));
}

TEST_F(bfd_config, a_set_to_the_same_destination_changes_nothing) {
  ASSERT_EQ(configure("t"), 0);
  const std::size_t requests = field::bfd_requests();
  trace();
  ASSERT_EQ(configure("t"), 0);
  EXPECT_THAT(field::take_traces(),
              contains_in_order(text_lines{
                  "(object_tracking_type_bfdprb_apply) : LEDGER_EVENT_SET",
                  "(object_tracking_type_bfdprb_apply) config not changed, do nothing"}));
  // The same destination with another rate and debounce count.
  EXPECT_EQ(apply(ledger_event_set, peer, peer), 0);
  EXPECT_EQ(field::bfd_requests(), requests);
  EXPECT_EQ(track("t").object.bfd.rate, 300U);
}

// The record is there still when the new session is to be made, and a record that exists is
// refused.
TEST_F(bfd_config, a_set_to_another_destination_gives_the_session_up_and_makes_no_other) {
  ASSERT_EQ(configure("t"), 0);
  peer_answers();
  ASSERT_EQ(published("t"), 1U);
  trace();
  EXPECT_NE(configure("t", "10.0.0.3"), 0);
  const std::string exists = "Unknown code 0xffffffff";
  EXPECT_THAT(
      field::take_traces(),
      contains_in_order(text_lines{
          "(object_tracking_type_bfdprb_apply) : LEDGER_EVENT_SET",
          "Entering (object_tracking_type_bfdprb_delete) : ",
          "(object_tracking_type_bfdprb_apply) : track t, if: Gi1,  ip 10.0.0.3",
          "(ot_create_bfd_track_entry) :  Track t already exists ",
          "(1: object_tracking_type_bfdprb_create) : ot_create_bfd_track_entry failed::" + exists,
          "(object_tracking_type_bfdprb_apply) : object_tracking_type_bfdprb_create failed - " +
              exists}));
  EXPECT_EQ(published("t"), 2U);
  EXPECT_THAT(field::bfd_wanted_sessions(), IsEmpty());
  EXPECT_EQ(entry(), nullptr);
  EXPECT_EQ(entry("10.0.0.3"), nullptr);
}

TEST_F(bfd_config, a_set_whose_deletion_fails_creates_nothing) {
  ASSERT_EQ(configure("t"), 0);
  trace();
  field::fail_next("bfdc_session_delete_unconfig_nb", 5);
  EXPECT_EQ(apply(ledger_event_set, peer, "10.0.0.3"), 5);
  EXPECT_THAT(field::take_traces(),
              Contains("(object_tracking_type_bfdprb_apply) : object_tracking_type_bfdprb_delete "
                       "failed - Input/output error"));
  EXPECT_NE(entry(), nullptr);
}

TEST_F(bfd_config, removing_the_item_gives_the_session_up_and_keeps_the_record) {
  ASSERT_EQ(configure("t"), 0);
  peer_answers();
  trace();
  ASSERT_EQ(commit({remove_item(session_item("t"))}), 0);
  const text_lines traces = field::take_traces();
  EXPECT_THAT(traces, contains_in_order(text_lines{
                          "(object_tracking_type_bfdprb_apply) : LEDGER_EVENT_DELETE",
                          "Entering (object_tracking_type_bfdprb_delete) : ",
                          "(object_tracking_set_track_state_in_ledger) : track t state Track_Down",
                          "Event 3, interface Gi1, destination 10.0.0.2, seq_id 2"}));
  EXPECT_THAT(traces, Not(Contains(HasSubstr("failed"))));
  EXPECT_EQ(published("t"), 2U);
  EXPECT_EQ(track("t").type, track_type::bfd);
  EXPECT_EQ(entry(), nullptr);
}

TEST_F(bfd_config, a_failing_deletion_is_traced_without_a_blank) {
  trace();
  EXPECT_EQ(apply(ledger_event_delete, peer, nullptr), -1);
  EXPECT_THAT(field::take_traces(),
              contains_in_order(text_lines{
                  "(object_tracking_type_bfdprb_delete) : Falied to get track_item ",
                  "(object_tracking_type_bfdprb_apply) : object_tracking_type_bfdprb_deletefailed "
                  "- Unknown code 0xffffffff"}));
}

TEST_F(bfd_config, a_path_without_its_fields_is_22) {
  trace();
  EXPECT_EQ(apply(ledger_event_create, nullptr, peer, 0), invalid_argument);
  EXPECT_EQ(verified, invalid_argument);
  EXPECT_EQ(accepted, 0U);
  EXPECT_THAT(field::take_traces(), Contains("Invalid Trackname"));
  EXPECT_EQ(apply(ledger_event_create, nullptr, peer, 4), invalid_argument);
  EXPECT_EQ(verified, 0);
  EXPECT_EQ(accepted, 1U);
  EXPECT_THAT(field::take_traces(), Contains("Invalid Interface name"));
  EXPECT_EQ(hash_db_get_track_item("t"), nullptr);
}

TEST_F(bfd_config, another_event_does_nothing) {
  EXPECT_EQ(apply(8, nullptr, peer), 0);
  EXPECT_EQ(hash_db_get_track_item("t"), nullptr);
}

TEST_F(bfd_config, a_track_of_another_type_stays_what_it_is) {
  ASSERT_EQ(commit(interface_track("t", "Gi1")), 0);
  EXPECT_NE(configure("t"), 0);
  EXPECT_EQ(track("t").type, track_type::interface);
  EXPECT_EQ(track("t").configured_type, 1U);
  EXPECT_EQ(field::bfd_requests(), 0U);
}

// The verifier accepts the item for any track, so it may be stored for one of another type.
TEST_F(bfd_config, an_item_of_a_track_of_another_type_goes_without_touching_the_track) {
  const std::string interface = "GigabitEthernet0/0";
  field::interface_added(interface);
  ASSERT_EQ(commit(interface_track("t", interface)), 0);
  ASSERT_EQ(published("t"), 1U);
  EXPECT_NE(configure("t"), 0);
  forget_output();
  commit({remove_item(session_item("t"))});
  EXPECT_EQ(track("t").type, track_type::interface);
  EXPECT_EQ(track("t").object.interface.name, interface.c_str());
  EXPECT_EQ(field::bfd_requests(), 0U);
}

TEST_F(bfd_config, a_record_made_for_its_delays_is_refused) {
  ASSERT_EQ(object_tracking_set_create_track_delay("t", 5, 5, true), 0);
  EXPECT_NE(configure("t"), 0);
  EXPECT_EQ(track("t").type, track_type::none);
}

TEST_F(bfd_config, another_type_is_refused_for_a_bfd_track) {
  ASSERT_EQ(configure("t"), 0);
  EXPECT_EQ(commit(interface_track("t", "Gi1")), track_type_conflict);
}

}  // namespace
}  // namespace ot::test
