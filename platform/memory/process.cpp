// The process as a test sees it. Its end is an exception. Threads that the service starts are real
// ones here too: they say when something has changed (a name taken, a bind, a loop gone idle), and
// a waiting test looks again at each such moment. The process's own waiting ends when what is
// waited for has come or a test has ordered "process_wait" to fail.
#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/memory/alloc_faults.h"
#include "platform/memory/controls.h"
#include "platform/memory/loops.h"
#include "platform/memory/world.h"
#include "platform/process.h"

namespace ot {
namespace {

constexpr std::chrono::seconds deadline{20};

struct changes {
  std::mutex mutex;
  std::condition_variable changed;
  std::uint64_t count = 0;
};

struct named_threads {
  std::mutex mutex;
  std::vector<std::string> names;
};

}  // namespace

void note_change() noexcept {
  alloc_faults_paused pause;
  changes& all = world_part<changes>();
  const std::scoped_lock lock{all.mutex};
  ++all.count;
  all.changed.notify_all();
}

void thread_name_set(const char* name) noexcept {
  alloc_faults_paused pause;
  {
    auto& [mutex, names] = world_part<named_threads>();
    const std::scoped_lock lock{mutex};
    names.emplace_back(name);
  }
  note_change();
}

void process_exit(int status) {
  throw process_exited{status};
}

void process_wait(evm* /*manager*/, bool (*ready)()) noexcept {
  alloc_faults_paused pause;
  if (take_failure("process_wait")) {
    return;
  }
  try {
    field::await([ready] {
      if (!ready()) {
        field::run_pending();
      }
      return ready();
    });
  } catch (...) {
    return;  // not in time
  }
}

namespace field {

std::vector<std::string> thread_names_set() {
  auto& [mutex, names] = world_part<named_threads>();
  const std::scoped_lock lock{mutex};
  return names;
}

std::size_t threads_ended() {
  const auto names = thread_names_set();
  return static_cast<std::size_t>(std::count(names.begin(), names.end(), ""));
}

void await(const std::function<bool()>& condition) {
  changes& all = world_part<changes>();
  std::unique_lock lock{all.mutex};
  for (;;) {
    const std::uint64_t seen = all.count;
    lock.unlock();
    if (condition()) {
      return;
    }
    lock.lock();
    if (!all.changed.wait_for(lock, deadline, [&] { return all.count != seen; })) {
      throw std::runtime_error{"what the test waits for does not happen"};
    }
  }
}

}  // namespace field

}  // namespace ot
