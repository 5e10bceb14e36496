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

void check(int result, const char* what) {
  if (result < 0) {
    throw std::system_error(errno, std::generic_category(), what);
  }
}

}  // namespace

otrack_follower::otrack_follower(otrack_client& client, std::vector<std::string> names,
                                 bool reconnects, begin how)
    : client_(client),
      telling_(std::move(names)),
      reconnects_(reconnects),
      clock_(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)),
      wait_(epoll_create1(EPOLL_CLOEXEC)) {
  check(clock_.get(), "following events: timerfd_create");
  check(wait_.get(), "following events: epoll_create1");
  ot::client::watch(wait_.get(), clock_.get());
  try {
    session_.emplace(wait_.get(), telling_.names());
    if (how == begin::waits) {
      wait_until_synced();
    }
  } catch (const trackctl::unanswered&) {
    if (!reconnects_) {
      throw;
    }
    disconnect();
    telling_.lose();
  } catch (const trackctl::failure& reason) {
    if (!reconnects_ || reason.status != trackctl::exit_no_service) {
      throw;
    }
    disconnect();
    telling_.lose();
  }
  set_clock();
}

void otrack_follower::wait_until_synced() {
  for (advance(); !telling_.synced(); advance()) {
    const std::uint64_t now = ot::monotonic_ms();
    pollfd ready{.fd = wait_.get(), .events = POLLIN, .revents = 0};
    (void)poll(&ready, 1, static_cast<int>(due_ms() > now ? due_ms() - now : 0));
  }
}

std::uint64_t otrack_follower::due_ms() const noexcept {
  const std::uint64_t session_ms = session_ ? session_->due_ms() : UINT64_MAX;
  return session_ && !telling_.synced() ? session_ms : std::min(session_ms, next_ms_);
}

// What stands in the queue has come already: a moment that is over keeps the descriptor readable.
void otrack_follower::set_clock() noexcept {
  const std::uint64_t when_ms = telling_.empty() ? due_ms() : 1;
  if (when_ms == set_ms_) {
    return;
  }
  const itimerspec when{.it_interval = {},
                        .it_value = {static_cast<time_t>(when_ms / 1000),
                                     static_cast<long>(when_ms % 1000 * 1'000'000)}};
  (void)timerfd_settime(clock_.get(), TFD_TIMER_ABSTIME, &when, nullptr);  // refuses no such time
  set_ms_ = when_ms;
}

void otrack_follower::disconnect() noexcept {
  session_.reset();
  // So that it is readable, and tells its end.
  next_ms_ = ot::monotonic_ms() + (reconnects_ ? retry_ms : 0);
}

// As far as it goes without waiting.
void otrack_follower::advance() {
  if (const auto present = session_->take_states()) {
    next_ms_ = ot::monotonic_ms() + compare_ms;
    telling_.take_states(*present);
  }
  session_->take_events(
      [this](const ot::evdl_track_event& event) { telling_.take_event(event, session_->asks()); });
  const bool due = telling_.wants_states() || ot::monotonic_ms() >= next_ms_;
  if (due && !session_->asks()) {
    telling_.ask();
    session_->ask_for_states();
  }
}

int otrack_follower::take() noexcept {
  if (ended_) {
    return ot::client::fail(client_, OTRACK_ERR_NO_SERVICE,
                            "following events: the service has gone");
  }
  const int result = ot::client::attempt(client_, [&] {
    if (!session_ && ot::monotonic_ms() >= next_ms_) {
      session_.emplace(wait_.get(), telling_.names());
    }
    if (session_) {
      advance();
    }
  });
  if (result == OTRACK_OK) {
    set_clock();
    return OTRACK_OK;
  }
  disconnect();
  ended_ = !reconnects_;
  const int result_of_telling = ot::client::attempt(client_, [&] { telling_.lose(); });
  set_clock();
  return result_of_telling;
}

const otrack_event* otrack_follower::next() noexcept {
  const otrack_event* const event = telling_.next();
  set_clock();
  return event;
}
