#include "tools/client/follower.h"

#include <poll.h>
#include <sys/epoll.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <system_error>
#include <utility>

#include "platform/linux/monotonic.h"

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
                                 bool reconnects, begin how)
    : client_(client),
      names_(std::move(names)),
      reconnects_(reconnects),
      clock_(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)),
      wait_(epoll_create1(EPOLL_CLOEXEC)) {
  check(clock_.get(), "following events: timerfd_create");
  check(wait_.get(), "following events: epoll_create1");
  std::sort(names_.begin(), names_.end());
  names_.erase(std::unique(names_.begin(), names_.end()), names_.end());
  watch(wait_.get(), clock_.get());
  try {
    session_.emplace(wait_.get(), names_);
    if (how == begin::waits) {
      wait_until_synced();
    }
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

void otrack_follower::wait_until_synced() {
  for (advance(); !synced_; advance()) {
    const std::uint64_t now = ot::monotonic_ms();
    pollfd ready{.fd = wait_.get(), .events = POLLIN, .revents = 0};
    (void)poll(&ready, 1, static_cast<int>(due_ms() > now ? due_ms() - now : 0));
  }
}

std::uint64_t otrack_follower::due_ms() const noexcept {
  const std::uint64_t session_ms = session_ ? session_->due_ms() : UINT64_MAX;
  return session_ && !synced_ ? session_ms : std::min(session_ms, next_ms_);
}

// What stands in the queue has come already: a moment that is over keeps the descriptor readable.
void otrack_follower::set_clock() noexcept {
  const std::uint64_t when_ms = queue_.empty() ? due_ms() : 1;
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

void otrack_follower::disconnect() noexcept {
  session_.reset();
  synced_ = false;
  early_.clear();
  // So that it is readable, and tells its end.
  next_ms_ = ot::monotonic_ms() + (reconnects_ ? retry_ms : 0);
}

void otrack_follower::begin_with(const states& present) {
  if (met_) {
    tell(OTRACK_EVENT_RESYNC);
  }
  known_.clear();
  fresh_.clear();
  compare_with(present);
  tell(OTRACK_EVENT_SYNCED);
  met_ = true;
  synced_ = true;
  for (const ot::evdl_track_event& event : std::exchange(early_, {})) {
    take_event(event);
  }
}

// What is there is told, what is not any more as well.
void otrack_follower::compare_with(const states& present) {
  forget_all_but(present);
  for (const auto& [name, state] : present) {
    if (follows(name) && !fresh_.contains(name)) {
      tell_state(name, state);
    }
  }
}

void otrack_follower::forget_all_but(const states& present) {
  for (auto known = known_.begin(); known != known_.end();) {
    if (present.contains(known->first)) {
      ++known;
    } else if (fresh_.contains(known->first)) {
      compares_ = true;
      ++known;
    } else {
      queue_.push_back({.kind = OTRACK_EVENT_DELETED,
                        .previous = known->second,
                        .time = now_ms(),
                        .track = known->first});
      known = known_.erase(known);
    }
  }
}

// A new track, and one that goes, have no event of their own; only the states tell.
void otrack_follower::take_event(const ot::evdl_track_event& event) {
  if (!follows(event.track)) {
    return;
  }
  if (event.state == OTRACK_UNKNOWN || !known_.contains(event.track)) {
    compares_ = true;
    return;
  }
  if (session_->asks()) {
    fresh_.insert(event.track);
  }
  tell_state(event.track, event.state);
}

// As far as it goes without waiting.
void otrack_follower::advance() {
  if (const auto present = session_->take_states()) {
    next_ms_ = ot::monotonic_ms() + compare_ms;
    synced_ ? compare_with(*present) : begin_with(*present);
  }
  session_->take_events([this](const ot::evdl_track_event& event) {
    if (synced_) {
      take_event(event);
    } else {
      early_.push_back(event);
    }
  });
  if (synced_ && !session_->asks() && (compares_ || ot::monotonic_ms() >= next_ms_)) {
    compares_ = false;
    fresh_.clear();
    session_->ask_for_states();
  }
}

int otrack_follower::take() noexcept {
  if (ended_) {
    return ot::client::fail(client_, OTRACK_ERR_NO_SERVICE,
                            "following events: the service has gone");
  }
  const bool lost = synced_;
  const int result = ot::client::attempt(client_, [&] {
    if (!session_ && ot::monotonic_ms() >= next_ms_) {
      session_.emplace(wait_.get(), names_);
    }
    if (session_) {
      advance();
    }
  });
  if (result == OTRACK_OK) {
    set_clock();
    return OTRACK_OK;
  }
  const bool was_synced = lost || synced_;
  disconnect();
  ended_ = !reconnects_;
  const int result_of_telling = ot::client::attempt(client_, [&] {
    if (was_synced) {
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
