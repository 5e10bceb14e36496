// How long after the kernel's own message a carrier event reaches a subscriber. Runs in the
// service's network namespace, takes the carrier of INTERFACE away and gives it back through its
// veth PEER, and notes when the bare link listener hears of it and when the first and the last of
// the events of EVENTS tracks come. One thread polls for both, so both times are read from the same
// clock (CLOCK_MONOTONIC) right after the data was received. It runs at real-time priority.
//
// Prints one line a change: "up" or "down", then nanoseconds since the request was made: the
// listener's message, the first event, the last event.
#include <net/if.h>
#include <poll.h>
#include <sched.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <thread>

#include "bench/e2e/link_netlink.h"
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
  runner(const char* interface, const char* peer, unsigned events)
      : listener_(if_nametoindex(interface)), switch_(if_nametoindex(peer)), events_(events) {
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
    std::array<pollfd, 2> fds{pollfd{listener_.fd(), POLLIN, 0},
                              pollfd{evdl_subscriber_fd(subscriber_), POLLIN, 0}};
    times.asked = clock::now();
    switch_.set(up);
    while (!heard || count < events_) {
      if (poll(fds.data(), fds.size(), 1000) < 0 || clock::now() - times.asked > patience) {
        throw std::runtime_error("the change did not come through");
      }
      if (fds[0].revents != 0 && listener_.receive() == up && !heard) {
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

  link_listener listener_;
  link_switch switch_;
  unsigned events_;
  evdl_subscriber* subscriber_ = nullptr;
};

// What is noted shall be when something came, not when this program was let in to look.
void become_urgent() {
  sched_param priority{};
  priority.sched_priority = sched_get_priority_min(SCHED_FIFO);
  if (sched_setscheduler(0, SCHED_FIFO, &priority) != 0) {
    std::perror("link_latency: not urgent; on a busy machine the times will be too short");
  }
}

void run(const char* interface, const char* peer, unsigned events, unsigned rounds,
         std::chrono::milliseconds gap) {
  become_urgent();
  runner measured(interface, peer, events);
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

}  // namespace
}  // namespace ot::bench

int main(int argc, char** argv) {
  if (argc != 6) {
    std::fputs("usage: link_latency INTERFACE PEER EVENTS ROUNDS GAP_MS\n", stderr);
    return 2;
  }
  const auto number = [argv](int index) {
    return static_cast<unsigned>(std::strtoul(argv[index], nullptr, 10));
  };
  try {
    ot::bench::run(argv[1], argv[2], number(3), number(4), std::chrono::milliseconds(number(5)));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "link_latency: %s\n", error.what());
    return 1;
  }
  return 0;
}
