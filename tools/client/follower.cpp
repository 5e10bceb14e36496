#include "tools/client/follower.h"

#include <sys/epoll.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <system_error>
#include <utility>

#include "platform/linux/monotonic.h"
#include "tools/trackctl/states.h"

namespace {

namespace trackctl = ot::trackctl;

constexpr std::uint64_t retry_ms = 200;
constexpr std::uint64_t compare_ms = 5'000;

std::int64_t now_ms() noexcept {
  using namespace std::chrono;
  return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

void check(int result, const char* what) {
  if (result < 0) {
    throw std::system_error(errno, std::generic_category(), what);
  }
}

void watch(int wait, int fd) {
  epoll_event event{.events = EPOLLIN, .data = {}};
  check(epoll_ctl(wait, EPOLL_CTL_ADD, fd, &event), "following events: epoll_ctl");
}

}  // namespace

otrack_follower::otrack_follower(otrack_client& client, std::vector<std::string> names,
                                 bool reconnects)
    : client_(client),
      names_(std::move(names)),
      reconnects_(reconnects),
      clock_(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)),
      wait_(epoll_create1(EPOLL_CLOEXEC)) {
  check(clock_.get(), "following events: timerfd_create");
  check(wait_.get(), "following events: epoll_create1");
  for (const std::string& name : names_) {
    (void)trackctl::filter_for(name);  // throws for one that events do not carry
  }
  std::sort(names_.begin(), names_.end());
  watch(wait_.get(), clock_.get());
  try {
    connect();
  } catch (const trackctl::unanswered&) {
    if (!reconnects_) {
      throw;
    }
    disconnect();
  } catch (const trackctl::failure& reason) {
    if (!reconnects_ || reason.status != trackctl::exit_no_service) {
      throw;
    }
    disconnect();
  }
  set_clock();
}

void otrack_follower::wake_after(std::uint64_t milliseconds) noexcept {
  due_ms_ = ot::monotonic_ms() + milliseconds;
}

// What stands in the queue has come already: a moment that is over keeps the descriptor readable.
void otrack_follower::set_clock() noexcept {
  const std::uint64_t when_ms = queue_.empty() ? due_ms_ : 1;
  if (when_ms == set_ms_) {
    return;
  }
  const itimerspec when{.it_interval = {},
                        .it_value = {static_cast<time_t>(when_ms / 1000),
                                     static_cast<long>(when_ms % 1000 * 1'000'000)}};
  (void)timerfd_settime(clock_.get(), TFD_TIMER_ABSTIME, &when, nullptr);  // refuses no such time
  set_ms_ = when_ms;
}

bool otrack_follower::follows(const std::string& track) const {
  return names_.empty() || std::binary_search(names_.begin(), names_.end(), track);
}

void otrack_follower::tell(std::uint32_t kind) {
  queue_.push_back({.kind = kind, .time = now_ms(), .track = {}});
}

// The queue grows first: what is not told is not known.
void otrack_follower::tell_state(const std::string& track, std::uint32_t state) {
  const auto found = known_.find(track);
  const std::uint32_t previous = found == known_.end() ? 0U : found->second;
  if (found != known_.end() && previous == state) {
    return;
  }
  queue_.push_back({.kind = OTRACK_EVENT_STATE,
                    .state = state,
                    .previous = previous,
                    .time = now_ms(),
                    .track = track});
  known_[track] = state;
}

void otrack_follower::connect() {
  std::vector<ot::evdl_filter> filters;
  for (const std::string& name : names_) {
    filters.push_back(trackctl::filter_for(name));
  }
  events_.emplace(filters);
  watch(wait_.get(), events_->descriptor());
  const states present = read_states();
  if (met_) {
    tell(OTRACK_EVENT_RESYNC);
  }
  known_.clear();
  take_over(present);
  tell(OTRACK_EVENT_SYNCED);
  met_ = true;
}

// Its descriptor leaves the epoll instance when it is closed.
void otrack_follower::disconnect() noexcept {
  events_.reset();
  wake_after(reconnects_ ? retry_ms : 0);  // so that it is readable, and tells its end
}

otrack_follower::states otrack_follower::read_states() {
  states present;
  for (const auto& track : trackctl::read_states()) {
    if (follows(track.name)) {
      present.emplace(track.name, static_cast<std::uint32_t>(track.state));
    }
  }
  wake_after(compare_ms);
  return present;
}

// What is there is told, what is not any more as well.
void otrack_follower::take_over(const states& present) {
  for (auto known = known_.begin(); known != known_.end();) {
    if (present.contains(known->first)) {
      ++known;
      continue;
    }
    queue_.push_back({.kind = OTRACK_EVENT_DELETED,
                      .previous = known->second,
                      .time = now_ms(),
                      .track = known->first});
    known = known_.erase(known);
  }
  for (const auto& [name, state] : present) {
    tell_state(name, state);
  }
}

// A new track, and one that goes, have no event of their own; only the states tell.
void otrack_follower::take_events(bool compares) {
  events_->receive(0, [&](const ot::evdl_track_event& event) {
    if (event.state == OTRACK_UNKNOWN || !known_.contains(event.track)) {
      compares = true;
    } else {
      tell_state(event.track, event.state);
    }
  });
  if (compares) {
    take_over(read_states());
  }
}

int otrack_follower::take() noexcept {
  if (ended_) {
    return ot::client::fail(client_, OTRACK_ERR_NO_SERVICE,
                            "following events: the service has gone");
  }
  const bool due = ot::monotonic_ms() >= due_ms_;
  const bool lost = !events_;
  const int result = ot::client::attempt(client_, [&] {
    if (lost && due) {
      connect();
    } else if (!lost) {
      take_events(due);
    }
  });
  if (result == OTRACK_OK) {
    set_clock();
    return OTRACK_OK;
  }
  disconnect();
  ended_ = !reconnects_;
  const int result_of_telling = ot::client::attempt(client_, [&] {
    if (!lost) {
      tell(OTRACK_EVENT_LOST);
    }
  });
  set_clock();
  return result_of_telling;
}

const otrack_event* otrack_follower::next() noexcept {
  if (queue_.empty()) {
    return nullptr;
  }
  present_ = std::move(queue_.front());
  queue_.pop_front();
  set_clock();
  event_ = {.kind = present_.kind,
            .state = present_.state,
            .previous = present_.previous,
            .reserved = 0,
            .time = present_.time,
            .track = present_.track.c_str()};
  return &event_;
}
