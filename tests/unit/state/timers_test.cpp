// The service's timers: what the operations create, how long they run, and what an expiry does.
#include "state/timers.h"

#include <chrono>
#include <memory>

#include "core/debug.h"
#include "platform/err_string.h"
#include "platform/ledger_status.h"
#include "platform/memory/alloc_faults.h"
#include "platform/memory/controls.h"
#include "platform/memory/ledger_controls.h"
#include "state/list_evaluation.h"
#include "tests/unit/odd_answers.h"
#include "tests/unit/service_fixture.h"

namespace ot::test {
namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

class timers : public running_service {
 protected:
  // A context of the test's; freed with the test.
  ot_timer_ctx* context(timer_kind kind, const char* name = "", std::uint32_t value = 0) {
    contexts_.emplace_back(new_timer_ctx(kind, name, value));
    return contexts_.back().get();
  }
  void only_errors() {
    ot_debug[ot_debug_error].enabled = 1;
    forget_output();
  }
  static bool runs_for(wtm_leaf* leaf, std::chrono::nanoseconds time) {
    field::advance(time - 1ns);
    const bool until_then = wtm_timer_leaf_running(leaf);
    field::advance(1ns);
    return until_then && !wtm_timer_leaf_running(leaf);
  }

 private:
  std::vector<std::unique_ptr<ot_timer_ctx>> contexts_;
};

TEST_F(timers, the_process_timers_exist_and_are_stopped) {
  ASSERT_NE(tracks_calc_timer, nullptr);
  ASSERT_NE(tracks_nfn_timer, nullptr);
  EXPECT_EQ(wtm_timer_leaf_get_type(tracks_calc_timer), 1);
  EXPECT_EQ(wtm_timer_leaf_get_type(tracks_nfn_timer), 4);
  EXPECT_FALSE(wtm_timer_leaf_running(tracks_calc_timer));
  EXPECT_FALSE(wtm_timer_leaf_running(tracks_nfn_timer));
}

// --- Creating ------------------------------------------------------------------------------------

TEST_F(timers, every_kind_is_created_stopped_with_its_context) {
  struct row {
    timer_kind kind;
    wtm_leaf* (*create)(ot_timer_ctx* ctx);
  };
  const auto process = [](ot_timer_ctx* ctx) { return set_ot_timer(ctx, 1); };
  for (const row& each :
       {row{timer_kind::list_calculation, process},
        row{timer_kind::probe_poll, set_ot_shm_poll_timer},
        row{timer_kind::track_delay, set_ot_delay_timer}, row{timer_kind::notification, process}}) {
    ot_timer_ctx* ctx = context(each.kind);
    wtm_leaf* leaf = each.create(ctx);
    ASSERT_NE(leaf, nullptr);
    EXPECT_EQ(wtm_timer_leaf_get_type(leaf), static_cast<std::uint16_t>(each.kind));
    EXPECT_EQ(get_timer_ctx(leaf), ctx);
    EXPECT_FALSE(wtm_timer_leaf_running(leaf));
  }
}

TEST_F(timers, nothing_is_created_without_a_context_or_lifetime_and_nothing_said) {
  only_errors();
  EXPECT_EQ(set_ot_timer(nullptr, 1), nullptr);
  EXPECT_EQ(set_ot_delay_timer(nullptr), nullptr);
  EXPECT_EQ(set_ot_shm_poll_timer(nullptr), nullptr);
  EXPECT_EQ(set_ot_timer(context(timer_kind::list_calculation), 0), nullptr);
  EXPECT_THAT(field::take_traces(), IsEmpty());
}

TEST_F(timers, a_context_of_another_kind_is_refused_by_name) {
  only_errors();
  EXPECT_EQ(set_ot_timer(context(timer_kind::track_delay), 1), nullptr);
  EXPECT_EQ(set_ot_delay_timer(context(timer_kind::list_calculation)), nullptr);
  EXPECT_EQ(set_ot_shm_poll_timer(context(timer_kind::track_delay)), nullptr);
  EXPECT_THAT(field::take_traces(), ElementsAre("(set_ot_timer) unknown timer type 3",
                                                "(set_ot_delay_timer) unknown timer type 1",
                                                "(set_ot_shm_poll_timer) unknown timer type 3"));
}

TEST_F(timers, a_leaf_without_memory_is_said_to_be_null) {
  ot_timer_ctx* calculation = context(timer_kind::list_calculation);
  ot_timer_ctx* delay = context(timer_kind::track_delay);
  ot_timer_ctx* poll = context(timer_kind::probe_poll);
  only_errors();
  wtm_leaf* leaves[3] = {};
  {
    alloc_faults faults{0, alloc_fault_mode::onward};
    leaves[0] = set_ot_timer(calculation, 1);
    leaves[1] = set_ot_delay_timer(delay);
    leaves[2] = set_ot_shm_poll_timer(poll);
  }
  EXPECT_THAT(leaves, Each(nullptr));
  EXPECT_THAT(field::take_traces(),
              ElementsAre("(set_ot_timer) timer is NULL", "(set_ot_delay_timer) timer is NULL",
                          "(set_ot_shm_poll_timer) timer is NULL"));
}

TEST_F(timers, a_context_holds_39_characters_of_the_name) {
  const std::string name = "track_" + std::string(40, 'x');
  const ot_timer_ctx* ctx = context(timer_kind::track_delay, name.c_str(), 2);
  EXPECT_EQ(ctx->type, 3u);
  EXPECT_EQ(ctx->name.view(), name.substr(0, 39));
  EXPECT_EQ(ctx->value, 2u);
}

TEST_F(timers, a_context_needs_memory) {
  ot_timer_ctx* ctx = nullptr;
  {
    alloc_faults faults{0};
    ctx = new_timer_ctx(timer_kind::track_delay, "t", 1);
  }
  EXPECT_EQ(ctx, nullptr);
}

// --- Starting and stopping -----------------------------------------------------------------------

TEST_F(timers, each_start_runs_for_its_own_time) {
  ot_timer_ctx* ctx = context(timer_kind::track_delay, "t", 1);
  wtm_leaf* leaf = set_ot_delay_timer(ctx);
  EXPECT_EQ(set_ot_wait_timer(leaf), 0);
  EXPECT_TRUE(runs_for(leaf, 20ms));
  EXPECT_EQ(set_ot_nfn_timer(leaf), 0);
  EXPECT_TRUE(runs_for(leaf, 100ms));
  EXPECT_EQ(set_ot_shm_poll_wait_timer(leaf), 0);
  EXPECT_TRUE(runs_for(leaf, 2s));
  EXPECT_EQ(set_ot_wait_delay_timer(leaf, 7, ctx), 0);
  EXPECT_TRUE(runs_for(leaf, 7s));
  EXPECT_EQ(set_ot_wait_delay_timer(leaf, 65535, ctx), 0);
  EXPECT_TRUE(runs_for(leaf, 65535s));
}

TEST_F(timers, starting_a_running_leaf_starts_it_anew) {
  wtm_leaf* leaf = set_ot_delay_timer(context(timer_kind::track_delay, "t"));
  set_ot_wait_timer(leaf);
  field::advance(15ms);
  set_ot_wait_timer(leaf);
  EXPECT_TRUE(runs_for(leaf, 20ms));
}

TEST_F(timers, a_delay_starts_with_the_context_it_is_given) {
  ot_timer_ctx* first = context(timer_kind::track_delay, "first", 1);
  ot_timer_ctx* second = context(timer_kind::track_delay, "second", 2);
  wtm_leaf* leaf = set_ot_delay_timer(first);
  set_ot_wait_delay_timer(leaf, 1, second);
  EXPECT_EQ(get_timer_ctx(leaf), second);
  field::advance(1s);
  EXPECT_EQ(published("second"), 2u);
  EXPECT_EQ(published("first"), std::nullopt);
}

TEST_F(timers, a_stopped_leaf_does_nothing) {
  wtm_leaf* leaf = set_ot_delay_timer(context(timer_kind::track_delay, "t", 1));
  set_ot_wait_timer(leaf);
  stop_ot_timer(leaf);
  EXPECT_FALSE(wtm_timer_leaf_running(leaf));
  field::advance(1s);
  EXPECT_EQ(published("t"), std::nullopt);
}

TEST_F(timers, an_expiry_that_has_no_hook_only_stops_the_leaf) {
  set_timer_hook(timer_kind::track_delay, nullptr);
  wtm_leaf* leaf = set_ot_delay_timer(context(timer_kind::track_delay, "t", 1));
  set_ot_wait_timer(leaf);
  field::advance(1s);
  EXPECT_FALSE(wtm_timer_leaf_running(leaf));
  EXPECT_EQ(published("t"), std::nullopt);
}

TEST_F(timers, a_null_leaf_is_refused_or_ignored) {
  EXPECT_EQ(set_ot_wait_timer(nullptr), invalid_argument);
  EXPECT_EQ(set_ot_nfn_timer(nullptr), invalid_argument);
  EXPECT_EQ(set_ot_shm_poll_wait_timer(nullptr), invalid_argument);
  EXPECT_EQ(set_ot_wait_delay_timer(nullptr, 1, nullptr), invalid_argument);
  EXPECT_EQ(get_timer_ctx(nullptr), nullptr);
  clear_ctx_ot_timer(nullptr);
  stop_ot_timer(nullptr);
  release_ot_timer(nullptr);
}

TEST_F(timers, clearing_frees_the_context_and_leaves_the_leaf_as_it_is) {
  ot_timer_ctx* ctx = new_timer_ctx(timer_kind::track_delay, "t", 1);
  wtm_leaf* leaf = set_ot_delay_timer(ctx);
  set_ot_wait_timer(leaf);
  const auto before = count_live_allocations().count;
  clear_ctx_ot_timer(leaf);
  EXPECT_EQ(count_live_allocations().count, before - 1);
  EXPECT_TRUE(wtm_timer_leaf_running(leaf));
  EXPECT_EQ(wtm_timer_leaf_get_context(leaf), ctx);  // kept, as a mere address
  stop_ot_timer(leaf);
}

TEST_F(timers, a_stopped_leaf_is_released_at_once) {
  const auto before = count_live_allocations().count;
  wtm_leaf* leaf = set_ot_delay_timer(new_timer_ctx(timer_kind::track_delay, "t", 1));
  release_ot_timer(leaf);
  EXPECT_EQ(count_live_allocations().count, before);
}

TEST_F(timers, a_released_running_leaf_does_its_work_once_and_goes) {
  std::int64_t left[3] = {};
  for (std::int64_t& allocations : left) {
    ot_timer_ctx* ctx = new_timer_ctx(timer_kind::track_delay, "gone", 1);
    wtm_leaf* leaf = set_ot_delay_timer(ctx);
    set_ot_wait_delay_timer(leaf, 3, ctx);
    release_ot_timer(leaf);
    take_notifications();
    field::advance(2999ms);
    EXPECT_THAT(take_notifications(), IsEmpty());
    field::advance(10s);
    EXPECT_THAT(take_notifications(), ElementsAre("gone set 1"));
    allocations = count_live_allocations().count;
  }
  EXPECT_EQ(left[1], left[2]);  // the first round makes room that is kept
}

// --- Expiry --------------------------------------------------------------------------------------

TEST_F(timers, a_burst_of_requests_gives_one_calculation) {
  trace();
  for (int i = 0; i < 50; ++i) {
    object_tracking_calc_tracks_state();
    field::advance(1ms);
  }
  const auto calculation = "Entering (object_tracking_calc_tracks_state_after_timer_expired) : ";
  EXPECT_THAT(field::take_traces(), Not(Contains(calculation)));
  field::advance(1s);
  EXPECT_THAT(field::take_traces(), Contains(calculation).Times(1));
}

TEST_F(timers, expiries_are_traced_by_the_name_of_their_kind) {
  wtm_leaf* delay = set_ot_delay_timer(context(timer_kind::track_delay, "t", 1));
  struct row {
    wtm_leaf* leaf;
    const char* line;
  };
  for (const row& each :
       {row{tracks_calc_timer, "(handle_ot_wtm_timer_expired) : OT_MSG_TIMER_TRACKS_CALC expired"},
        row{delay, "(handle_ot_wtm_timer_expired) : OT_MSG_TIMER_TRACKS_DELAY expired"},
        row{tracks_nfn_timer, "(handle_ot_wtm_timer_expired) : UNKNOWN expired"}}) {
    field::advance(1s);
    trace();
    set_ot_wait_timer(each.leaf);
    field::advance(20ms);
    const auto lines = field::take_traces();
    EXPECT_THAT(lines, Contains(each.line).Times(1));
    EXPECT_THAT(lines, Contains("Entering (handle_ot_wtm_timer_expired) : ").Times(1));
  }
}

TEST_F(timers, the_notification_timer_has_no_name_but_sends_the_notifications) {
  ASSERT_EQ(commit(interface_track("t", "eth0")), 0);
  take_notifications();
  trace();
  field::advance(100ms);
  EXPECT_THAT(field::take_traces(),
              AllOf(Contains("(handle_ot_wtm_timer_expired) : UNKNOWN expired"),
                    Contains("NFN queue timer triggered")));
  EXPECT_THAT(take_notifications(), Not(IsEmpty()));
}

TEST_F(timers, a_leaf_without_context_is_stopped_and_skipped) {
  wtm_leaf* bare = set_ot_delay_timer(context(timer_kind::track_delay, "bare", 1));
  wtm_leaf* next = set_ot_delay_timer(context(timer_kind::track_delay, "next", 1));
  set_ot_wait_delay_timer(bare, 1, nullptr);
  set_ot_wait_delay_timer(next, 1, get_timer_ctx(next));
  field::advance(1s);
  EXPECT_FALSE(wtm_timer_leaf_running(bare));
  EXPECT_EQ(published("bare"), std::nullopt);
  EXPECT_EQ(published("next"), 1u);
}

TEST_F(timers, an_expiry_that_fails_is_reported_and_the_next_one_done) {
  wtm_leaf* first = set_ot_delay_timer(context(timer_kind::track_delay, "first", 1));
  wtm_leaf* second = set_ot_delay_timer(context(timer_kind::track_delay, "second", 1));
  set_ot_wait_timer(first);
  set_ot_wait_timer(second);
  ledger_control_fail_next(ledger_operation::set, ledger_full);
  only_errors();
  field::advance(20ms);
  EXPECT_THAT(
      field::take_traces(),
      Contains(
          std::string{"(handle_ot_wtm_timer_expired) : "
                      "object_tracking_set_track_state_in_ledger_after_timer_expired failed- "} +
          err_string(ledger_full)));
  EXPECT_EQ(published("first"), std::nullopt);
  EXPECT_EQ(published("second"), 1u);
}

TEST_F(timers, a_leaf_of_no_known_kind_is_named_by_its_context_and_the_next_one_done) {
  wtm_leaf* odd = set_ot_delay_timer(context(timer_kind::track_delay, "odd", 1));
  wtm_leaf* next = set_ot_delay_timer(context(timer_kind::track_delay, "next", 1));
  set_ot_wait_timer(odd);
  set_ot_wait_timer(next);
  const with_odd_answers disguised({.disguised = odd, .disguise = 9});
  trace();
  field::advance(20ms);
  const auto lines = field::take_traces();
  EXPECT_THAT(lines,
              contains_in_order(text_lines{
                  "(handle_ot_wtm_timer_expired) : UNKNOWN expired", "Entering (get_timer_ctx) : ",
                  "(handle_ot_wtm_timer_expired) unknown timer type 3",
                  "(handle_ot_wtm_timer_expired) : OT_MSG_TIMER_TRACKS_DELAY expired"}));
  EXPECT_FALSE(wtm_timer_leaf_running(odd));
  EXPECT_EQ(published("odd"), std::nullopt);
  EXPECT_EQ(published("next"), 1u);
}

TEST_F(timers, operations_trace_their_entry) {
  ot_timer_ctx* calculation = context(timer_kind::list_calculation);
  ot_timer_ctx* delay = context(timer_kind::track_delay, "t", 1);
  trace();
  stop_ot_timer(set_ot_timer(calculation, 5));
  wtm_leaf* leaf = set_ot_delay_timer(delay);
  set_ot_shm_poll_timer(context(timer_kind::probe_poll));
  set_ot_wait_timer(leaf);
  set_ot_nfn_timer(leaf);
  set_ot_shm_poll_wait_timer(leaf);
  set_ot_wait_delay_timer(leaf, 1, delay);
  get_timer_ctx(leaf);
  stop_ot_timer(leaf);
  clear_ctx_ot_timer(nullptr);
  EXPECT_THAT(field::take_traces(),
              ElementsAre(" (set_ot_timer): lifetime = 5",
                          "Entering (stop_ot_timer) : ", "(set_ot_delay_timer)",
                          "Entering (set_ot_shm_poll_timer) : ", "new leaf timer created",
                          "Entering (set_ot_wait_timer) : ", "Entering (set_ot_nfn_timer) : ",
                          "Entering (set_ot_shm_poll_wait_timer) : ",
                          "Entering (set_ot_wait_delay_timer) : ", "Entering (get_timer_ctx) : ",
                          "Entering (stop_ot_timer) : ", "Entering (clear_ctx_ot_timer) : "));
}

// --- Start-up ------------------------------------------------------------------------------------

// Only the router, so that a test starts the timers itself.
class timers_init : public service_fixture {
 protected:
  void TearDown() override { ot_timers_stop(); }
};

TEST_F(timers_init, traces_the_poll_timers_root) {
  trace();
  EXPECT_EQ(ot_timers_init(manager), 0);
  EXPECT_THAT(field::take_traces(),
              ElementsAre("Entering (ot_timers_init) : ", "set : tracks_shm_poll_request_root"));
}

TEST_F(timers_init, a_platform_that_refuses_is_22) {
  for (const char* operation : {"evm_async_attach", "evm_init_sigevent", "timer_alarm_new"}) {
    field::fail_next(operation, 5);
    EXPECT_EQ(ot_timers_init(manager), invalid_argument) << operation;
  }
  EXPECT_EQ(ot_timers_init(manager), 0);
}

TEST_F(timers_init, without_memory_it_is_22_and_leaves_nothing) {
  int status = -1;
  auto before = count_live_allocations().count;
  ASSERT_EQ(ot_timers_init(manager), 0);  // the platform's own first-time allocations
  ot_timers_stop();
  before = count_live_allocations().count;
  const auto hits =
      for_each_failing_allocation([&] { status = ot_timers_init(manager); },
                                  [&](std::uint64_t k, bool hit) {
                                    EXPECT_EQ(status, hit ? invalid_argument : 0) << k;
                                    if (hit) {
                                      EXPECT_EQ(count_live_allocations().count, before) << k;
                                    }
                                  });
  EXPECT_GE(hits, 5u);  // the tree and its four parents
}

TEST_F(timers_init, a_missing_poll_root_is_traced) {
  std::uint64_t allocations = 0;
  {
    alloc_faults counting{~std::uint64_t{0}};
    ot_timers_init(manager);
    allocations = counting.count();
  }
  ot_timers_stop();
  trace();
  {
    alloc_faults faults{allocations - 1};
    EXPECT_EQ(ot_timers_init(manager), invalid_argument);
  }
  EXPECT_THAT(field::take_traces(), Contains(" tracks_shm_poll_request_root == NULL"));
}

TEST_F(timers_init, the_process_timers_need_memory) {
  ASSERT_EQ(ot_timers_init(manager), 0);
  int status = -1;
  for_each_failing_allocation([&] { status = ot_process_timers_create(); },
                              [&](std::uint64_t k, bool hit) {
                                EXPECT_EQ(status, hit ? no_memory : 0) << k;
                                ot_timers_stop();
                                ASSERT_EQ(ot_timers_init(manager), 0);
                              });
}

}  // namespace
}  // namespace ot::test
