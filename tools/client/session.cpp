// The service's ledger has room for some hundred clients, and lets go of one that has said nothing
// yet: who is turned away while it goes on asks again a moment later, each at another one.
#include "tools/client/session.h"

#include <sys/epoll.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "platform/ledger_status.h"
#include "platform/linux/events/protocol.h"
#include "platform/linux/monotonic.h"
#include "tools/trackctl/command.h"
#include "tools/trackctl/states.h"

namespace ot::client {
namespace {

constexpr std::uint64_t subscription_limit_ms = 2'000;
constexpr std::uint64_t states_limit_ms = 5'000;
constexpr std::uint64_t again_least_ms = 50;
constexpr std::uint64_t again_spread_ms = 150;

// All tracks where the names are more than the service takes.
std::vector<evdl_filter> filters_of(const std::vector<std::string>& names) {
  std::vector<evdl_filter> filters;
  filters.reserve(names.size());
  for (const std::string& name : names) {
    filters.push_back(trackctl::filter_for(name));  // throws for one that events do not carry
  }
  return filters.size() <= event_filter_limit ? filters : std::vector<evdl_filter>{};
}

}  // namespace

void watch(int wait, int fd) {
  epoll_event event{.events = EPOLLIN, .data = {}};
  if (epoll_ctl(wait, EPOLL_CTL_ADD, fd, &event) < 0) {
    throw std::system_error(errno, std::generic_category(), "following events: epoll_ctl");
  }
}

session::session(int wait, const std::vector<std::string>& names)
    : wait_(wait),
      events_(filters_of(names), trackctl::event_subscription::begin::at_once),
      limit_ms_(monotonic_ms() + subscription_limit_ms) {
  watch(wait_, events_.descriptor());
}

void session::ask_for_states() {
  asks_ = true;
  limit_ms_ = monotonic_ms() + states_limit_ms;
  again_ms_ = 0;
  fetch();
}

void session::put_off() noexcept {
  fetch_.reset();
  const std::uint64_t spread = monotonic_us() % again_spread_ms;
  again_ms_ = monotonic_ms() + again_least_ms + spread;
}

void session::fetch() {
  fetch_.reset();
  ledger_fetch* begun = nullptr;
  const int code = ledger_fetch_begin(trackctl::all_states_path, &begun);
  fetch_.reset(begun);
  if (code == ledger_no_answer || code == ledger_busy) {
    put_off();
    return;
  }
  trackctl::check_code("reading the states of the tracks", code);
  watch(wait_, ledger_fetch_fd(begun));
}

void session::check_patience(const char* what) const {
  if (monotonic_ms() >= limit_ms_) {
    trackctl::check_code(what, ledger_no_answer);
  }
}

std::optional<track_states> session::take_states() {
  if (!subscribed_) {
    subscribed_ = events_.answered();
    if (!subscribed_) {
      check_patience("following events");
      return std::nullopt;
    }
    ask_for_states();
  }
  if (!asks_) {
    return std::nullopt;
  }
  if (fetch_ == nullptr && monotonic_ms() >= again_ms_) {
    fetch();
  }
  ledger_value value;
  const int code = fetch_ == nullptr ? ledger_no_answer : ledger_fetch_take(fetch_.get(), &value);
  if (code == ledger_no_answer || code == ledger_busy) {
    if (code == ledger_busy) {
      put_off();
    }
    check_patience("reading the states of the tracks");
    return std::nullopt;
  }
  fetch_.reset();
  asks_ = false;
  track_states present;
  for (const auto& track : trackctl::states_of(code, value)) {
    present.emplace(track.name, static_cast<std::uint32_t>(track.state));
  }
  return present;
}

void session::take_events(const std::function<void(const evdl_track_event&)>& on_event) const {
  if (subscribed_) {
    events_.receive(0, on_event);
  }
}

std::uint64_t session::due_ms() const noexcept {
  if (!asks_) {
    return UINT64_MAX;
  }
  return subscribed_ && fetch_ == nullptr ? std::min(again_ms_, limit_ms_) : limit_ms_;
}

}  // namespace ot::client
