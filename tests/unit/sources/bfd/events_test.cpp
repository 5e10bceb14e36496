// What the engine reports to the client, and its way from the BFD thread to the main thread.
#include "sources/bfd/client.h"

#include <thread>

#include "platform/event_manager.h"
#include "platform/memory/alloc_faults.h"
#include "tests/unit/sources/bfd/fixture.h"

namespace ot::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class bfd_events : public bfd_service {
 protected:
  void SetUp() override {
    bfd_service::SetUp();
    ASSERT_EQ(configure("t"), 0);
    peer_answers();
    trace();
  }
  // A result about the session of "t", as the engine would report it.
  [[nodiscard]] bfdc_request_result result(std::uint32_t event, int error = 0) const {
    bfdc_request_result reported;
    reported.error = error;
    reported.event = event;
    reported.ifhandle = gi1;
    reported.destination = ipv4_bfd_address(ip(peer));
    reported.sequence = 77;
    reported.context = ot_bfd_ctx.load();
    return reported;
  }
  static void say(const bfdc_request_result& reported) {
    field::bfd_says_result(reported);
    field::run_pending();
  }
};

TEST_F(bfd_events, an_unknown_result_is_a_message_with_its_number) {
  say(result(4));
  EXPECT_THAT(field::take_messages(),
              ElementsAre("OT-SERVICES-4-UNKNOWN_BFD_EVENT: Unsupported event %u : 4"));
  EXPECT_NE(entry(), nullptr);
}

TEST_F(bfd_events, a_created_session_is_down_until_its_state_is_reported) {
  say(result(bfdc_request_created));
  EXPECT_EQ(entry()->state, 2U);
  EXPECT_EQ(track("t").state, track_state::up);
  EXPECT_THAT(field::take_traces(),
              Contains("Event 1, interface Gi1, destination 10.0.0.2, seq_id 77"));
}

TEST_F(bfd_events, a_creation_without_an_entry_is_traced) {
  bfdc_request_result reported = result(bfdc_request_created);
  reported.ifhandle = 99;
  say(reported);
  EXPECT_THAT(field::take_traces(), Contains("(ot_bfd_req_handler) Invalid bfd session key"));
}

TEST_F(bfd_events, either_confirmed_deletion_removes_the_entry) {
  for (const std::uint32_t event : {bfdc_request_deleted, bfdc_request_unconfigured}) {
    ASSERT_NE(entry(), nullptr);
    say(result(event));
    EXPECT_EQ(entry(), nullptr) << event;
    ASSERT_EQ(configure("next"), 0);
  }
}

TEST_F(bfd_events, a_deletion_without_an_entry_is_traced) {
  bfdc_request_result reported = result(bfdc_request_deleted);
  reported.ifhandle = 99;
  say(reported);
  EXPECT_THAT(field::take_traces(),
              Contains("(ot_bfd_req_handler) hash_db_delete_bfdprb_item failed with error: Invalid "
                       "argument"));
}

TEST_F(bfd_events, a_refusal_is_traced_before_the_result) {
  field::bfd_refuses_next(5);
  ASSERT_EQ(configure("refused", "10.0.0.9"), 0);
  EXPECT_THAT(field::take_traces(),
              contains_in_order(text_lines{
                  "(ot_bfd_req_handler):Failed in BFD server request: Input/output error ",
                  "Event 1, interface Gi1, destination 10.0.0.9, seq_id 2"}));
  EXPECT_EQ(track("refused").state, track_state::down);
}

// Results are matched by session: the name in the context decides nothing.
TEST_F(bfd_events, a_result_without_a_known_track_is_applied_all_the_same) {
  bfdc_request_result reported = result(bfdc_request_created);
  reported.context = nullptr;
  say(reported);
  EXPECT_THAT(field::take_traces(),
              Contains("(ot_bfd_req_handler):Failed to get track_item from hash table"));
  EXPECT_EQ(entry()->state, 2U);
  const track_name stranger{"stranger"};
  reported = result(bfdc_request_deleted);
  reported.context = &stranger;
  say(reported);
  EXPECT_THAT(field::take_traces(), Contains("(ot_bfd_req_handler):BFD Context is NULL"));
  EXPECT_EQ(entry(), nullptr);
}

TEST_F(bfd_events, another_kind_of_event_is_traced) {
  field::bfd_says_event({5, gi1, ipv4_bfd_address(ip(peer)), 1});
  field::run_pending();
  EXPECT_THAT(field::take_traces(), Contains("(ot_bfd_scn_handler):Unexpected BFD Event :5 "));
  EXPECT_EQ(entry()->state, 1U);
}

TEST_F(bfd_events, a_state_of_an_unknown_session_is_traced) {
  field::bfd_says_event({bfdc_event_session_state, gi1, ipv4_bfd_address(ip("10.9.9.9")), 0});
  field::run_pending();
  EXPECT_THAT(field::take_traces(),
              Contains("(ot_bfd_scn_handler):Error getting bfd_entry data from hash table"));
}

TEST_F(bfd_events, nothing_reported_is_traced) {
  ot_bfd_req_handler(nullptr);
  ot_bfd_scn_handler(nullptr);
  EXPECT_THAT(field::take_traces(), ElementsAre("(ot_bfd_req_handler): Received NULL parameter ",
                                                "(ot_bfd_scn_handler): BFD event info is NULL "));
}

TEST_F(bfd_events, states_are_applied_in_the_order_they_came) {
  take_events();
  for (int i = 0; i < 100; ++i) {
    field::bfd_peer_silent("Gi1", peer);
    field::bfd_peer_answers("Gi1", peer);
  }
  field::run_pending();
  text_lines wanted;
  for (int i = 0; i < 100; ++i) {
    wanted.insert(wanted.end(), {"t 2", "t 1"});
  }
  EXPECT_EQ(take_events(), wanted);
}

// The two threads at full speed: what is reported while configuration comes and goes.
TEST_F(bfd_events, reports_and_configuration_at_once_end_in_the_last_state) {
  trace(false);
  std::thread reporter([this] {
    const bfd_address destination = ipv4_bfd_address(ip(peer));
    for (std::uint32_t i = 0; i < 2000; ++i) {
      const bfdc_event event{bfdc_event_session_state, gi1, destination, i % 2};
      ot_bfd_scn_handler(&event);
    }
  });
  for (int i = 0; i < 200; ++i) {
    const std::string name = "n" + std::to_string(i);
    const ledger_proposal item = set_tuple(session_item(name), {ip("10.0.1.1")});
    ledger_commit(ledger_get_default_conn(), {&item, 1}, &refusals);
    while (evm_block(manager) == 0) {
      evm_dispatch(manager);
    }
  }
  reporter.join();
  field::run_pending();
  EXPECT_EQ(track("t").state, track_state::down);  // the last one reported
  EXPECT_EQ(entry()->state, 2U);
  EXPECT_THAT(followers(entry("10.0.1.1")), SizeIs(200));
}

TEST_F(bfd_events, an_event_that_cannot_be_copied_is_traced_and_the_next_one_counts) {
  const bfd_address destination = ipv4_bfd_address(ip(peer));
  const bfdc_event down{bfdc_event_session_state, gi1, destination, 1};
  {
    alloc_faults faults{0};
    ot_bfd_scn_handler(&down);
    EXPECT_TRUE(faults.hit());
  }
  EXPECT_THAT(field::take_traces(), ElementsAre("(ot_bfd_scn_handler) : event not handed over - "
                                                "Cannot allocate memory"));
  field::run_pending();
  EXPECT_EQ(track("t").state, track_state::up);
  ot_bfd_scn_handler(&down);
  field::run_pending();
  EXPECT_EQ(track("t").state, track_state::down);
}

TEST_F(bfd_events, an_event_for_a_loop_that_cannot_be_woken_comes_with_the_next_one) {
  take_events();
  const bfd_address destination = ipv4_bfd_address(ip(peer));
  const bfdc_event down{bfdc_event_session_state, gi1, destination, 1};
  const bfdc_event up{bfdc_event_session_state, gi1, destination, 0};
  field::fail_next("evm_post", no_memory);
  ot_bfd_scn_handler(&down);
  field::run_pending();
  EXPECT_THAT(take_events(), IsEmpty());
  ot_bfd_scn_handler(&up);
  field::run_pending();
  EXPECT_THAT(take_events(), ElementsAre("t 2", "t 1"));
}

TEST_F(bfd_events, what_was_not_applied_goes_with_the_service) {
  const std::int64_t before = count_live_allocations().count;
  const bfdc_event down{bfdc_event_session_state, gi1, ipv4_bfd_address(ip(peer)), 1};
  field::fail_next("evm_post", no_memory);
  ot_bfd_scn_handler(&down);
  EXPECT_GT(count_live_allocations().count, before);
  stop();
  ASSERT_EQ(start(), 0);
  EXPECT_EQ(track("t").state, track_state::up);
}

}  // namespace
}  // namespace ot::test
