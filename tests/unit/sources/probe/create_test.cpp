// A track that comes to follow an operation: a new one, and one that was there.
#include "config/delays.h"
#include "platform/ledger_status.h"
#include "platform/memory/ledger_controls.h"
#include "state/ledger_state.h"
#include "tests/unit/sources/probe/fixture.h"

namespace ot::test {
namespace {

using std::chrono::seconds;
using testing::ElementsAre;

class probe_create : public probe_service {
 protected:
  // As an earlier life of the track has left it in the ledger.
  static void leave_published(const char* name, std::uint32_t state) {
    ledger_control_put(std::string{"/oper/gl/object-tracking/"} + name, ledger_kind::u32,
                       bytes_of_numbers({state}));
  }
  static void make_present(const char* name, int delay_up = 0, int delay_down = 0) {
    ASSERT_EQ(object_tracking_set_create_track_delay(name, delay_up, delay_down, true), 0);
  }
};

TEST_F(probe_create, a_new_track_holds_the_first_result) {
  field::probe_result(7, 1, 23);
  field::set_wall_clock(1'700'000'555);
  ASSERT_EQ(create("t"), 0);
  EXPECT_EQ(track("t").type, track_type::probe);
  EXPECT_EQ(track("t").object.probe.operation_id, 7U);
  EXPECT_EQ(track("t").object.probe.response_time, 23U);
  EXPECT_EQ(track("t").object.probe.return_code, 1U);
  EXPECT_EQ(track("t").delay_up, 0);
  EXPECT_EQ(track("t").delay_down, 0);
  EXPECT_EQ(track("t").source_state, track_state::up);
  EXPECT_EQ(track("t").state, track_state::up);
  EXPECT_EQ(track("t").seconds_last_change, 1'700'000'555);
  EXPECT_EQ(published("t"), 1U);
  EXPECT_THAT(field::take_messages(),
              ElementsAre("OT-SERVICES-6-TRACK_INFO: track t state Track_Up"));
}

TEST_F(probe_create, the_operations_entry_keeps_the_state_of_its_first_track) {
  field::probe_result(7, 2);
  ASSERT_EQ(create("a"), 0);
  field::probe_result(7, 1);
  ASSERT_EQ(create("b"), 0);
  ASSERT_NE(entry(), nullptr);
  EXPECT_EQ(entry()->op_id, 7);
  EXPECT_EQ(entry()->state, 2U);
  EXPECT_EQ(entry()->reserved, 0U);
  EXPECT_THAT(followers(), ElementsAre("b", "a"));
}

TEST_F(probe_create, success_is_up_no_result_unknown_and_everything_else_down) {
  struct row {
    std::uint32_t code;
    track_state state;
    text_lines reported;
  };
  std::int32_t op_id = 100;
  for (const row& expected : {
           row{0, track_state::unknown, {" Track set to Unknown"}},
           row{1, track_state::up, {" Track set to UP"}},
           row{2, track_state::down, {" Trcak was not UP", " Track set to DOWN"}},
           row{7, track_state::down, {" Trcak was not UP", " Track set to DOWN"}},
           row{0xffffffff, track_state::down, {" Trcak was not UP", " Track set to DOWN"}},
       }) {
    const std::string name = "t" + std::to_string(expected.code);
    field::probe_result(static_cast<std::uint32_t>(++op_id), expected.code, 5);
    trace();
    ASSERT_EQ(create(name.c_str(), op_id), 0);
    EXPECT_EQ(track(name).state, expected.state) << name;
    EXPECT_THAT(field::take_traces(), contains_in_order(expected.reported)) << name;
  }
}

TEST_F(probe_create, an_operation_that_does_not_run_is_unknown_and_not_published) {
  ASSERT_EQ(create("t"), 0);
  EXPECT_EQ(track("t").state, track_state::unknown);
  EXPECT_EQ(track("t").state_change_counter, 0U);
  EXPECT_EQ(published("t"), std::nullopt);
  EXPECT_TRUE(polled("t"));
}

TEST_F(probe_create, a_new_track_is_made_in_this_order) {
  field::probe_result(7, 1, 23);
  trace();
  ASSERT_EQ(create("t"), 0);
  const text_lines traces = field::take_traces();
  const std::string find_track = "Entering (hash_db_get_track_item) : ";
  EXPECT_THAT(
      text_lines(traces.begin(), traces.begin() + 28),
      ElementsAre(
          "Entering (object_tracking_type_prb_create) : ", "Entering (shm_read_qmon_stats) : ",
          "Failed to initialize the stats table ", "Entering (track_prb_init) : ",
          " Succesfully initialized qmon shm in read only mode ", " Reading from qmon shared mem ",
          " Track set to UP", find_track, "track t: added to the hash table", find_track,
          "Entering (get_timer_ctx) : ", "(set_ot_delay_timer)", " Reset the timer values ",
          "Entering (set_ot_shm_poll_timer) : ", "new leaf timer created",
          "Entering (insert_track_to_prb_entry) : ", "Entering (hash_db_get_prb_item) : ",
          "lookup over ", "lookup == NULL", "calling hash_db_add_new_prb_item ",
          "Entering (hash_db_add_new_prb_item) : ",
          "(object_tracking_set_track_state_in_ledger) : track t state Track_Up", find_track,
          "(object_tracking_set_track_state_in_ledger) : track t ledger state Unknown",
          "Entering (get_timer_ctx) : ", "Entering (stop_ot_timer) : ",
          "(object_tracking_set_track_state_in_ledger_after_timer_expired) : track t state "
          "Track_Up",
          find_track));
  EXPECT_EQ(traces.back(), "Entering (set_ot_shm_poll_wait_timer) : ");
}

TEST_F(probe_create, a_present_track_is_taken_over_in_this_order) {
  make_present("t");
  leave_published("t", 1);
  field::probe_result(7, 2);
  ASSERT_EQ(create("first", 7), 0);
  trace();
  ASSERT_EQ(create("t"), 0);
  const text_lines traces = field::take_traces();
  const std::string find_track = "Entering (hash_db_get_track_item) : ";
  EXPECT_THAT(text_lines(traces.begin(), traces.begin() + 20),
              ElementsAre("Entering (object_tracking_type_prb_create) : ",
                          "Entering (shm_read_qmon_stats) : ", " Reading from qmon shared mem ",
                          " Trcak was not UP", " Track set to DOWN", find_track,
                          "Entering (object_tracking_ledger_get_prb_track_state) : ",
                          "(object_tracking_ledger_get_prb_track_state): ledger bind was succesful",
                          "(object_tracking_ledger_get_prb_track_state): ledger get was succesful",
                          "(object_tracking_ledger_get_prb_track_state): state = 1",
                          "Entering (get_timer_ctx) : ", "(set_ot_delay_timer)",
                          "Entering (clear_ctx_ot_timer) : ", " Reset the timer values ",
                          "Entering (set_ot_shm_poll_timer) : ", "new leaf timer created",
                          "Entering (insert_track_to_prb_entry) : ",
                          "Entering (hash_db_get_prb_item) : ", "lookup over ", " lookup != NULL"));
}

TEST_F(probe_create, a_present_track_keeps_its_delays_and_starts_to_count_anew) {
  make_present("t", 10, 3);
  track("t").state_change_counter = 9;
  field::set_wall_clock(1'700'000'777);
  field::probe_result(7, 1);
  ASSERT_EQ(create("t"), 0);
  EXPECT_EQ(track("t").type, track_type::probe);
  EXPECT_EQ(track("t").state_change_counter, 0U);
  EXPECT_EQ(track("t").seconds_last_change, 1'700'000'777);
  EXPECT_EQ(track("t").source_state, track_state::up);
  EXPECT_EQ(track("t").state, track_state::unknown);
  let_pass(seconds{10});
  EXPECT_EQ(track("t").state, track_state::up);
  EXPECT_EQ(track("t").delay_up, 10);
  EXPECT_EQ(track("t").delay_down, 3);
}

TEST_F(probe_create, a_present_track_takes_the_published_state_over_restart_or_not) {
  for (const auto& [item, state] :
       {std::pair{1U, track_state::up}, {2U, track_state::down}, {3U, track_state::unknown}}) {
    const std::string name = "t" + std::to_string(item);
    make_present(name.c_str(), 60, 60);
    leave_published(name.c_str(), item);
    ASSERT_EQ(create(name.c_str()), 0);
    EXPECT_EQ(track(name).state, state) << item;
  }
  make_present("none", 60, 60);
  track("none").state = track_state::up;
  ASSERT_EQ(create("none"), 0);
  EXPECT_EQ(track("none").state, track_state::unknown);
}

TEST_F(probe_create, a_new_track_takes_the_published_state_over_after_a_restart_only) {
  field::probe_result(7, 1);
  leave_published("a", 1);
  leave_published("b", 1);
  ASSERT_EQ(create("a"), 0);
  EXPECT_EQ(track("a").state_change_counter, 1U);
  ot_set_restart(2);
  ASSERT_EQ(create("b"), 0);
  EXPECT_EQ(track("b").state, track_state::up);
  EXPECT_EQ(track("b").state_change_counter, 0U);  // nothing to publish
}

TEST_F(probe_create, both_timers_carry_the_track) {
  field::probe_result(7, 2);
  make_present("present");
  leave_published("present", 2);  // nothing to publish
  for (const char* name : {"new", "present"}) {
    ASSERT_EQ(create(name), 0);
    const ot_timer_ctx* delay = get_timer_ctx(track(name).delay_timer);
    ASSERT_NE(delay, nullptr);
    EXPECT_EQ(delay->type, 3U);
    EXPECT_EQ(delay->name, name);
    EXPECT_EQ(delay->value, 2U);
    const ot_timer_ctx* poll = get_timer_ctx(track(name).poll_timer);
    ASSERT_NE(poll, nullptr);
    EXPECT_EQ(poll->type, 2U);
    EXPECT_EQ(poll->name, name);
    EXPECT_FALSE(wtm_timer_leaf_running(track(name).delay_timer));
    EXPECT_TRUE(polled(name));
  }
}

TEST_F(probe_create, a_failed_publication_is_returned_and_starts_no_poll) {
  field::probe_result(7, 1);
  ledger_control_fail_next(ledger_operation::set, ledger_full);
  EXPECT_EQ(create("t"), ledger_full);
  EXPECT_FALSE(polled("t"));
  EXPECT_THAT(followers(), ElementsAre("t"));
}

TEST_F(probe_create, a_list_of_other_tracks_gives_its_members_up) {
  ASSERT_EQ(commit({set_number(track_path("t", "type/list/0x3/a"), 1),
                    set_number(track_path("t", "type/list/0x3/object/m/a"), 0)}),
            0);
  ASSERT_EQ(track("t").type, track_type::boolean_and);
  ASSERT_EQ(create("t", 3), 0);
  EXPECT_EQ(track("t").type, track_type::probe);
  EXPECT_EQ(track("t").object.probe.operation_id, 3U);
  EXPECT_EQ(track("t").object.probe.response_time, 0U);
}

}  // namespace
}  // namespace ot::test
