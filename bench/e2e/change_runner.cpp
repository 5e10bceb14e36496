// One thread polls for the kernel's message and for the events, so both times are read from the
// same clock (CLOCK_MONOTONIC) right after the data was received.
#include "bench/e2e/change_runner.h"

#include <poll.h>
#include <sched.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <stdexcept>
#include <thread>

#include "platform/event_subscriber.h"
#include "platform/status.h"

namespace ot::bench {
namespace {

using clock = std::chrono::steady_clock;
using time_point = clock::time_point;

constexpr auto patience = std::chrono::seconds(10);
constexpr std::uint32_t state_up = 1;

struct change_times {
  time_point asked;
  time_point kernel;
  time_point first;
  time_point last;
};

long long since(time_point begin, time_point end) {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(end - begin).count();
}

class runner {
 public:
  runner(const changed_object& object, unsigned events) : object_(object), events_(events) {
    if (evdl_subscribe({}, &subscriber_) != status_ok) {
      throw std::runtime_error("cannot subscribe: is the service running?");
    }
  }
  ~runner() { evdl_unsubscribe(subscriber_); }
  runner(const runner&) = delete;
  runner& operator=(const runner&) = delete;

  change_times change(bool up) {
    change_times times;
    bool heard = false;
    unsigned count = 0;
    std::array<pollfd, 2> fds{pollfd{object_.listener_fd, POLLIN, 0},
                              pollfd{evdl_subscriber_fd(subscriber_), POLLIN, 0}};
    times.asked = clock::now();
    object_.set(up);
    while (!heard || count < events_) {
      if (poll(fds.data(), fds.size(), 1000) < 0 || clock::now() - times.asked > patience) {
        throw std::runtime_error("the change did not come through");
      }
      if (fds[0].revents != 0 && object_.receive() == up && !heard) {
        times.kernel = clock::now();
        heard = true;
      }
      if (fds[1].revents != 0) receive_events(up, times, count);
    }
    return times;
  }

 private:
  void receive_events(bool up, change_times& times, unsigned& count) {
    const int result = evdl_receive(subscriber_, 0, [&](const evdl_track_event& event) {
      if ((event.state == state_up) != up) return;
      times.last = clock::now();
      if (count++ == 0) times.first = times.last;
    });
    if (result != status_ok) throw std::runtime_error("the subscription ended");
  }

  const changed_object& object_;
  unsigned events_;
  evdl_subscriber* subscriber_ = nullptr;
};

// What is noted shall be when something came, not when this program was let in to look.
void become_urgent() {
  sched_param priority{};
  priority.sched_priority = sched_get_priority_min(SCHED_FIFO);
  if (sched_setscheduler(0, SCHED_FIFO, &priority) != 0) {
    std::perror("not urgent; on a busy machine the times will be too short");
  }
}

}  // namespace

void measure_changes(const changed_object& object, unsigned events, unsigned rounds,
                     std::chrono::milliseconds gap) {
  become_urgent();
  runner measured(object, events);
  for (unsigned round = 0; round < rounds; ++round) {
    for (const bool up : {false, true}) {
      // What one change leaves to be done later (notices to readers) shall not meet the next one.
      std::this_thread::sleep_for(gap);
      const change_times times = measured.change(up);
      std::printf("%s %lld %lld %lld\n", up ? "up" : "down", since(times.asked, times.kernel),
                  since(times.asked, times.first), since(times.asked, times.last));
    }
  }
}

}  // namespace ot::bench
