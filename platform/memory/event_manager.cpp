// The event manager on virtual time: a queue of handlers a manager. On the test's thread nothing
// ever waits, an empty queue is reported instead; a manager that another thread runs waits for
// real, and the test can wait until that thread has nothing left to do.
#include "platform/event_manager.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

#include "platform/clock.h"
#include "platform/loop_turns.h"
#include "platform/memory/alloc_faults.h"
#include "platform/memory/controls.h"
#include "platform/memory/loops.h"
#include "platform/memory/world.h"
#include "platform/status.h"

namespace ot {
namespace {

constexpr int nothing_pending = 11;  // EAGAIN
constexpr int loop_ended = 9;        // EBADF
constexpr int interrupted = 4;       // EINTR
constexpr std::uint64_t handlers_at_once = 1'000'000;
constexpr std::chrono::seconds idle_deadline{20};

struct async_event {
  evm_async_handler handler = nullptr;
  void* argument = nullptr;
  bool pending = false;
};

}  // namespace

struct evm {
  std::mutex mutex;
  std::condition_variable changed;
  std::deque<std::function<void()>> pending;
  std::map<int, async_event> events;
  bool elsewhere = false;  // run by another thread than the test's
  bool waiting = false;
  bool ended = false;
  bool abandoned = false;  // its thread gave up on a failed wait
  loop_turns turns;
};

namespace {

struct loops_part {
  std::thread::id test_thread = std::this_thread::get_id();
  std::mutex mutex;
  std::vector<evm*> managers;
  std::uint64_t handlers_run = 0;
};

// Calls `use(manager)` under the manager's lock, if it still exists.
template <typename Use>
bool with_manager(const evm* manager, Use&& use) {
  loops_part& loops = world_part<loops_part>();
  const std::scoped_lock lock{loops.mutex};
  const auto it = std::find(loops.managers.begin(), loops.managers.end(), manager);
  if (it == loops.managers.end()) {
    return false;
  }
  const std::scoped_lock manager_lock{(*it)->mutex};
  use(**it);
  (*it)->changed.notify_all();
  return true;
}

int wait_for_work(evm& manager) {
  std::unique_lock lock{manager.mutex};
  manager.elsewhere = true;
  manager.abandoned = false;
  manager.waiting = true;
  manager.changed.notify_all();
  note_change();
  manager.changed.wait(lock, [&] { return !manager.pending.empty() || manager.ended; });
  manager.waiting = false;
  return manager.ended ? loop_ended : status_ok;
}

void run_async(evm* manager, int code) {
  async_event event;
  with_manager(manager, [&](evm& present) {
    present.events[code].pending = false;
    event = present.events[code];
  });
  if (event.handler != nullptr) {
    alloc_faults_resumed resume;
    event.handler(event.argument);
  }
}

std::vector<evm*> present_managers() {
  loops_part& loops = world_part<loops_part>();
  const std::scoped_lock lock{loops.mutex};
  return loops.managers;
}

bool runs_elsewhere(evm& manager) {
  const std::scoped_lock lock{manager.mutex};
  return manager.elsewhere;
}

// True when another thread had work to finish.
bool wait_until_idle(evm& manager) {
  std::unique_lock lock{manager.mutex};
  const auto idle = [&] {
    return manager.ended || manager.abandoned || (manager.waiting && manager.pending.empty());
  };
  if (idle()) {
    return false;
  }
  if (!manager.changed.wait_for(lock, idle_deadline, idle)) {
    throw std::runtime_error{"another thread's loop does not become idle"};
  }
  return true;
}

// True when a handler ran.
bool run_one(evm* manager) {
  return evm_block(manager) == status_ok && evm_dispatch(manager) == status_ok;
}

}  // namespace

int evm_create(evm** ret) noexcept {
  alloc_faults_paused pause;
  if (const int code = take_failure_code("evm_create")) {
    return code;
  }
  loops_part& loops = world_part<loops_part>();
  const std::scoped_lock lock{loops.mutex};
  *ret = loops.managers.emplace_back(new evm);
  (*ret)->turns.since = clock_realtime_seconds();
  return status_ok;
}

void evm_destroy(evm* manager) noexcept {
  alloc_faults_paused pause;
  if (manager == nullptr) {
    return;
  }
  connections_end(manager);
  {
    loops_part& loops = world_part<loops_part>();
    const std::scoped_lock lock{loops.mutex};
    std::erase(loops.managers, manager);
  }
  delete manager;
}

int evm_block(evm* manager) noexcept {
  alloc_faults_paused pause;
  if (const int code = take_failure_code("evm_block")) {
    const std::scoped_lock lock{manager->mutex};
    manager->abandoned = manager->elsewhere && code != interrupted;
    return code;
  }
  if (std::this_thread::get_id() != world_part<loops_part>().test_thread) {
    return wait_for_work(*manager);
  }
  fire_due_alarms();
  const std::scoped_lock lock{manager->mutex};
  return manager->ended ? loop_ended : manager->pending.empty() ? nothing_pending : status_ok;
}

int evm_dispatch(evm* manager) {
  alloc_faults_paused pause;
  std::function<void()> work;
  {
    const std::scoped_lock lock{manager->mutex};
    if (manager->pending.empty()) {
      return nothing_pending;
    }
    work = std::move(manager->pending.front());
    manager->pending.pop_front();
  }
  {
    loops_part& loops = world_part<loops_part>();
    const std::scoped_lock lock{loops.mutex};
    ++loops.handlers_run;
  }
  work();
  return status_ok;
}

loop_turns evm_turns(const evm* manager) noexcept {
  return manager->turns;
}

void loop_post(evm* manager, std::function<void()> work) noexcept {
  alloc_faults_paused pause;
  with_manager(manager, [&](evm& present) { present.pending.push_back(std::move(work)); });
}

void loop_runs_here(evm* manager) noexcept {
  const bool elsewhere = std::this_thread::get_id() != world_part<loops_part>().test_thread;
  with_manager(manager, [elsewhere](evm& present) { present.elsewhere = elsewhere; });
}

int evm_post(evm* manager, evm_task task, void* argument) noexcept {
  alloc_faults_paused pause;
  if (const int code = take_failure_code("evm_post")) {
    return code;
  }
  loop_post(manager, [task, argument] {
    alloc_faults_resumed resume;
    task(argument);
  });
  return status_ok;
}

int evm_async_attach(evm* manager, int code, evm_async_handler handler, void* argument) noexcept {
  alloc_faults_paused pause;
  if (take_failure("evm_async_attach") || handler == nullptr) {
    return -1;
  }
  const bool exists = with_manager(manager, [&](evm& present) {
    present.events[code] = {handler, argument, false};
  });
  return exists ? code : -1;
}

int evm_init_sigevent(evm* manager, int code, std::uint32_t, std::uint32_t,
                      evm_sigevent* ret) noexcept {
  alloc_faults_paused pause;
  if (const int failure = take_failure_code("evm_init_sigevent")) {
    return failure;
  }
  bool attached = false;
  with_manager(manager, [&](evm& present) { attached = present.events.contains(code); });
  if (!attached) {
    return invalid_argument;
  }
  *ret = {manager, code};
  return status_ok;
}

void evm_raise(const evm_sigevent& event) noexcept {
  alloc_faults_paused pause;
  with_manager(event.manager, [&](evm& present) {
    const auto it = present.events.find(event.code);
    if (it != present.events.end() && !it->second.pending) {
      it->second.pending = true;
      present.pending.push_back([event] { run_async(event.manager, event.code); });
    }
  });
}

namespace field {

void reset() {
  world_end();
  world_part<loops_part>().test_thread = std::this_thread::get_id();
}

void run_pending() {
  std::uint64_t left = handlers_at_once;
  for (bool busy = true; busy;) {
    busy = false;
    // The other threads first: while they are idle only this one can give them work.
    const std::vector<evm*> managers = present_managers();
    for (evm* manager : managers) {
      busy = (runs_elsewhere(*manager) && wait_until_idle(*manager)) || busy;
    }
    for (evm* manager : managers) {
      busy = (!runs_elsewhere(*manager) && run_one(manager)) || busy;
      if (--left == 0) {
        throw std::runtime_error{"the loops never run dry"};
      }
    }
  }
}

std::uint64_t handlers_run() {
  loops_part& loops = world_part<loops_part>();
  const std::scoped_lock lock{loops.mutex};
  return loops.handlers_run;
}

void turn_took(evm* manager, std::chrono::microseconds time) {
  const auto taken = static_cast<std::uint64_t>(time.count());
  with_manager(manager, [taken](evm& present) {
    if (taken > present.turns.longest_us) {
      present.turns.longest_us = taken;
      present.turns.longest_at = clock_realtime_seconds();
    }
  });
}

void end_loop(evm* manager) {
  with_manager(manager, [](evm& present) { present.ended = true; });
}

}  // namespace field
}  // namespace ot
