// The BFD thread: its start, its bind, its loop and its end.
#include "sources/bfd/client.h"

#include "platform/memory/alloc_faults.h"
#include "tests/unit/sources/bfd/fixture.h"

namespace ot::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* init_fail = "OT-SERVICES-3-INIT_FAIL: ";

// Ends the thread and starts another one, with what follows in the traces.
void start_anew(evm* manager) {
  ot_bfd_stop();
  field::take_traces();
  const std::size_t ended = field::threads_ended();
  ASSERT_EQ(ot_bfd_init(manager), 0);
  field::await([=] { return is_ot_bfd_init_done == 1 || field::threads_ended() > ended; });
  field::run_pending();
}

TEST_F(bfd_service, the_thread_is_named_and_bound_under_the_services_name) {
  EXPECT_THAT(field::thread_names_set(), ElementsAre("ot_bfd"));
  EXPECT_EQ(field::bfd_client_name(), "object_tracking");
  EXPECT_EQ(field::bfd_binds(), 1U);
  EXPECT_EQ(is_ot_bfd_init_done, 1U);
  EXPECT_EQ(is_ot_bfd_bind_done, 1U);
  EXPECT_EQ(is_ot_bfd_connection_up, 1U);
  stop();
  EXPECT_THAT(field::thread_names_set(), ElementsAre("ot_bfd", ""));
  EXPECT_EQ(is_ot_bfd_init_done, 0U);
  EXPECT_EQ(is_ot_bfd_connection_up, 0U);
}

TEST_F(bfd_service, a_second_start_does_nothing_while_the_thread_runs) {
  EXPECT_EQ(ot_bfd_init(manager), 0);
  field::run_pending();
  EXPECT_EQ(field::bfd_binds(), 1U);
  EXPECT_THAT(field::thread_names_set(), ElementsAre("ot_bfd"));
}

TEST_F(bfd_service, the_threads_signals_are_blocked) {
  sigset_t blocked;
  ASSERT_EQ(pthread_sigmask(SIG_BLOCK, nullptr, &blocked), 0);
  EXPECT_EQ(sigismember(&blocked, SIGRTMIN + 6), 1);
  EXPECT_EQ(sigismember(&blocked, SIGRTMIN + 10), 1);
}

TEST_F(bfd_service, an_interrupted_wait_does_not_end_the_loop) {
  // The wait that follows the next event is interrupted.
  field::fail_next("evm_block", 4);
  field::bfd_says_status(1);
  field::await([] { return field::failures_left().empty(); });
  ASSERT_EQ(configure("t"), 0);
  peer_answers();
  EXPECT_EQ(published("t"), 1U);
}

TEST_F(bfd_service, a_failing_wait_ends_the_thread_and_another_one_goes_on_for_it) {
  ASSERT_EQ(configure("t"), 0);
  trace();
  field::fail_next("evm_block", 9);
  field::bfd_says_status(1);
  field::await([] { return field::threads_ended() == 1; });
  EXPECT_EQ(is_ot_bfd_init_done, 0U);
  EXPECT_THAT(field::take_traces(), Contains("event block failed"));
  field::bfd_peer_answers("Gi1", peer);
  ASSERT_EQ(ot_bfd_init(manager), 0);
  field::await([] { return is_ot_bfd_init_done == 1; });
  field::run_pending();
  EXPECT_EQ(field::bfd_binds(), 1U);  // still bound
  EXPECT_EQ(published("t"), 1U);
}

TEST_F(bfd_service, a_bind_that_is_answered_with_a_failure_is_not_done) {
  trace();
  field::fail_next("bfdc_bind_nb", 0, 5);
  start_anew(manager);
  EXPECT_EQ(is_ot_bfd_bind_done, 0U);
  EXPECT_EQ(is_ot_bfd_init_done, 1U);
  EXPECT_THAT(field::take_traces(),
              contains_in_order(text_lines{"Enter::(ot_bfd_bind) : ",
                                           "(ot_bfd_bind_handler) bind to bfd server failed"}));
}

TEST_F(bfd_service, a_bind_that_is_answered_with_success_is_traced) {
  trace();
  start_anew(manager);
  EXPECT_THAT(field::take_traces(),
              Contains("(ot_bfd_bind_handler) bind to bfd server successful "));
}

// The thread has ended without a bind: the service runs without BFD.
class unbound_bfd : public bfd_service {
 protected:
  void SetUp() override {
    gi1 = field::interface_added("Gi1");
    ASSERT_EQ(start(), 0);
    trace();
    field::fail_next("bfdc_bind_nb", 5);
    start_anew(manager);
  }
};

TEST_F(unbound_bfd, a_failed_bind_ends_the_thread_with_a_message) {
  EXPECT_EQ(is_ot_bfd_init_done, 0U);
  EXPECT_EQ(is_ot_bfd_bind_done, 0U);
  EXPECT_EQ(is_ot_bfd_connection_up, 0U);
  EXPECT_THAT(field::take_messages(),
              ElementsAre(std::string{init_fail} + "Failed binding with BFD server"));
  EXPECT_THAT(
      field::take_traces(),
      contains_in_order(text_lines{
          "Enter::(ot_bfd_bind) : ", "(1::ot_bfd_bind) : bfdc_bind_nb failed: Input/output error",
          "ot_bfd_thread:error during bfd_bind:: Input/output error"}));
  EXPECT_THAT(field::thread_names_set(), ElementsAre("ot_bfd", "", "ot_bfd", ""));
}

TEST_F(unbound_bfd, configuration_keeps_waiting_until_a_second_start) {
  ASSERT_EQ(configure("t"), 0);
  EXPECT_EQ(bfd_cfg_count(), 1U);
  field::bfd_engine_back();
  field::run_pending();
  EXPECT_EQ(is_ot_bfd_connection_up, 0U);
  ASSERT_EQ(ot_bfd_init(manager), 0);
  field::await([] { return is_ot_bfd_init_done == 1; });
  field::run_pending();
  EXPECT_EQ(is_ot_bfd_connection_up, 1U);
  EXPECT_EQ(bfd_cfg_count(), 0U);
  EXPECT_THAT(followers(entry()), ElementsAre("t"));
}

class thread_alone : public service_fixture {};

TEST_F(thread_alone, without_a_manager_the_bind_fails_with_22) {
  trace();
  ASSERT_EQ(ot_bfd_init(nullptr), 0);
  field::await([] { return field::threads_ended() == 1; });
  EXPECT_EQ(is_ot_bfd_init_done, 0U);
  EXPECT_THAT(field::take_traces(),
              ElementsAre("Enter::(ot_bfd_bind) : ", "(ot_bfd_bind) : NULL evm",
                          "ot_bfd_thread:error during bfd_bind:: Invalid argument"));
  EXPECT_THAT(field::take_messages(),
              ElementsAre(std::string{init_fail} + "Failed binding with BFD server"));
}

TEST_F(thread_alone, without_a_loop_of_its_own_it_is_not_started) {
  field::fail_next("evm_create", no_memory);
  EXPECT_EQ(ot_bfd_init(manager), no_memory);
  EXPECT_THAT(field::thread_names_set(), IsEmpty());
}

TEST_F(thread_alone, without_memory_for_the_context_it_ends_with_a_message) {
  trace();
  {
    alloc_faults faults{0};
    ot_bfd_thread(manager);
  }
  EXPECT_THAT(field::take_traces(),
              ElementsAre("ot_bfd_thread: calloc failed for ctx::Cannot allocate memory"));
  EXPECT_THAT(field::take_messages(),
              ElementsAre(std::string{init_fail} +
                          "Calloc failed for ot_bfd_ctx:: Cannot allocate memory"));
  EXPECT_EQ(is_ot_bfd_init_done, 0U);
  EXPECT_EQ(field::bfd_binds(), 0U);
}

}  // namespace
}  // namespace ot::test
