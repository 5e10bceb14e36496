// The event manager's promises: order, one handler a dispatch, coalescing, other threads.
#include "platform/event_manager.h"

#include <thread>
#include <vector>

#include "tests/contract/contract_test.h"

namespace ot::contract {
namespace {

class event_manager_contract : public contract_test {};

struct note {
  std::vector<int>* log;
  int number;
};

void take_note(void* argument) {
  const auto* taken = static_cast<const note*>(argument);
  taken->log->push_back(taken->number);
}

TEST_F(event_manager_contract, posts_run_in_their_order) {
  std::vector<int> log;
  note notes[] = {{&log, 1}, {&log, 2}, {&log, 3}};
  for (note& each : notes) {
    ASSERT_EQ(evm_post(manager(), take_note, &each), 0);
  }
  EXPECT_TRUE(log.empty());
  EXPECT_TRUE(run_until([&] { return log.size() == 3; }));
  EXPECT_EQ(log, (std::vector<int>{1, 2, 3}));
}

TEST_F(event_manager_contract, one_dispatch_runs_one_handler) {
  std::vector<int> log;
  note notes[] = {{&log, 1}, {&log, 2}};
  for (note& each : notes) {
    ASSERT_EQ(evm_post(manager(), take_note, &each), 0);
  }
  ASSERT_EQ(evm_block(manager()), 0);
  ASSERT_EQ(evm_dispatch(manager()), 0);
  EXPECT_EQ(log, (std::vector<int>{1}));
  ASSERT_EQ(evm_block(manager()), 0);
  ASSERT_EQ(evm_dispatch(manager()), 0);
  EXPECT_EQ(log, (std::vector<int>{1, 2}));
}

TEST_F(event_manager_contract, dispatching_without_work_is_refused) {
  EXPECT_NE(evm_dispatch(manager()), 0);
}

TEST_F(event_manager_contract, what_a_handler_posts_runs_after_what_was_posted) {
  std::vector<int> log;
  struct reposting {
    evm* manager;
    note inner;
  } outer{manager(), {&log, 3}};
  note second{&log, 2};
  ASSERT_EQ(evm_post(
                manager(),
                [](void* argument) {
                  auto* self = static_cast<reposting*>(argument);
                  self->inner.log->push_back(1);
                  evm_post(self->manager, take_note, &self->inner);
                },
                &outer),
            0);
  ASSERT_EQ(evm_post(manager(), take_note, &second), 0);
  EXPECT_TRUE(run_until([&] { return log.size() == 3; }));
  EXPECT_EQ(log, (std::vector<int>{1, 2, 3}));
}

TEST_F(event_manager_contract, another_thread_may_post) {
  std::vector<int> log;
  std::vector<note> notes;
  for (int i = 0; i < 1000; ++i) {
    notes.push_back({&log, i});
  }
  int failures = 0;
  std::thread other{[&] {
    for (note& each : notes) {
      failures += evm_post(manager(), take_note, &each) == 0 ? 0 : 1;
    }
  }};
  other.join();
  EXPECT_EQ(failures, 0);
  ASSERT_TRUE(run_until([&] { return log.size() == notes.size(); }));
  for (int i = 0; i < 1000; ++i) {
    ASSERT_EQ(log[static_cast<std::size_t>(i)], i);
  }
}

TEST_F(event_manager_contract, threads_post_side_by_side_each_in_its_order) {
  constexpr int each_posts = 500;
  std::vector<int> log;
  std::vector<note> of_a;
  std::vector<note> of_b;
  for (int i = 0; i < each_posts; ++i) {
    of_a.push_back({&log, i});
    of_b.push_back({&log, -1 - i});
  }
  const auto post_all = [&](std::vector<note>& notes) {
    for (note& each : notes) {
      evm_post(manager(), take_note, &each);
    }
  };
  std::thread a{[&] { post_all(of_a); }};
  std::thread b{[&] { post_all(of_b); }};
  let_pass(manager(), std::chrono::milliseconds{1});  // takes while they give
  a.join();
  b.join();
  ASSERT_TRUE(run_until([&] { return log.size() == 2 * each_posts; }));
  int next_a = 0;
  int next_b = -1;
  for (const int number : log) {
    if (number >= 0) {
      ASSERT_EQ(number, next_a++);
    } else {
      ASSERT_EQ(number, next_b--);
    }
  }
}

// --- Asynchronous events -------------------------------------------------------------------------

constexpr int code = 128;

void count_up(void* argument) {
  ++*static_cast<int*>(argument);
}

TEST_F(event_manager_contract, a_raised_event_runs_its_handler_with_its_argument) {
  int count = 0;
  ASSERT_EQ(evm_async_attach(manager(), code, count_up, &count), code);
  evm_sigevent event;
  ASSERT_EQ(evm_init_sigevent(manager(), code, 0, 0, &event), 0);
  EXPECT_EQ(event.code, code);
  evm_raise(event);
  EXPECT_EQ(count, 0);
  EXPECT_TRUE(run_until([&] { return count == 1; }));
}

TEST_F(event_manager_contract, raising_a_pending_event_adds_nothing) {
  int count = 0;
  std::vector<int> log;
  note last{&log, 1};
  ASSERT_EQ(evm_async_attach(manager(), code, count_up, &count), code);
  const evm_sigevent event{manager(), code};
  evm_raise(event);
  evm_raise(event);
  evm_raise(event);
  ASSERT_EQ(evm_post(manager(), take_note, &last), 0);
  EXPECT_TRUE(run_until([&] { return !log.empty() && count > 0; }));
  let_pass(manager(), std::chrono::milliseconds{5});
  EXPECT_EQ(count, 1);
}

TEST_F(event_manager_contract, an_event_raised_by_its_own_handler_comes_again) {
  struct again {
    evm_sigevent event;
    int count = 0;
  } self;
  ASSERT_EQ(evm_async_attach(
                manager(), code,
                [](void* argument) {
                  auto* me = static_cast<again*>(argument);
                  if (++me->count < 3) {
                    evm_raise(me->event);
                  }
                },
                &self),
            code);
  ASSERT_EQ(evm_init_sigevent(manager(), code, 0, 0, &self.event), 0);
  evm_raise(self.event);
  EXPECT_TRUE(run_until([&] { return self.count == 3; }));
}

TEST_F(event_manager_contract, an_event_that_is_not_attached_cannot_be_described) {
  evm_sigevent event;
  EXPECT_EQ(evm_init_sigevent(manager(), code, 0, 0, &event), 22);
}

TEST_F(event_manager_contract, another_thread_may_raise) {
  int count = 0;
  ASSERT_EQ(evm_async_attach(manager(), code, count_up, &count), code);
  std::thread other{[this] { evm_raise({manager(), code}); }};
  other.join();
  EXPECT_TRUE(run_until([&] { return count == 1; }));
}

}  // namespace
}  // namespace ot::contract
