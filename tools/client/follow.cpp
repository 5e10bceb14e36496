// Following for C: handing events over, waiting for the next one, and waiting for a state.
#include <poll.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "tools/client/follower.h"
#include "tools/trackctl/configuration.h"
#include "tools/trackctl/names.h"

namespace {

namespace trackctl = ot::trackctl;

int left_until(std::chrono::steady_clock::time_point end) {
  const auto left =
      std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
  return static_cast<int>(std::max<std::int64_t>(left.count(), 0));
}

// Those that a program has given; throws for what is no track's name.
std::vector<std::string> taken(const char* const* names, size_t count) {
  ot::client::refuse_unless(names != nullptr || count == 0, "a pointer is null");
  std::vector<std::string> all;
  for (const char* const name : std::span(names, count)) {
    ot::client::check_pointer(name);
    trackctl::check_track_name(name);
    all.emplace_back(name);
  }
  return all;
}

}  // namespace

int otrack_follow(otrack_client* client, const char* const* names, size_t count, unsigned flags,
                  otrack_follower** ret) {
  return ot::client::attempt(client, [=] {
    ot::client::check_pointer(ret);
    ot::client::check_flags(flags, OTRACK_RECONNECT | OTRACK_NO_WAIT);
    *ret = new otrack_follower(*client, taken(names, count), (flags & OTRACK_RECONNECT) != 0,
                               (flags & OTRACK_NO_WAIT) != 0 ? otrack_follower::begin::at_once
                                                             : otrack_follower::begin::waits);
  });
}

int otrack_follower_fd(const otrack_follower* follower) {
  return follower->fd();
}

int otrack_follower_dispatch(otrack_follower* follower,
                             void (*on_event)(const otrack_event* event, void* context),
                             void* context) {
  if (follower == nullptr || on_event == nullptr) {
    return OTRACK_ERR_INVALID;
  }
  const int taken = follower->take();
  int count = 0;
  while (const otrack_event* event = follower->next()) {
    on_event(event, context);
    ++count;
  }
  return count > 0 ? count : taken;
}

int otrack_follower_next(otrack_follower* follower, int timeout_ms, const otrack_event** ret) {
  if (follower == nullptr || ret == nullptr) {
    return OTRACK_ERR_INVALID;
  }
  const auto end =
      std::chrono::steady_clock::now() + std::chrono::milliseconds(std::max(timeout_ms, 0));
  for (;;) {
    const otrack_event* event = follower->next();
    if (event == nullptr) {
      if (const int taken = follower->take(); taken != OTRACK_OK) {
        return taken;
      }
      event = follower->next();
    }
    const int left = timeout_ms < 0 ? -1 : left_until(end);
    if (event != nullptr || left == 0) {
      *ret = event;
      return event != nullptr ? 1 : 0;
    }
    pollfd ready{.fd = follower->fd(), .events = POLLIN, .revents = 0};
    (void)poll(&ready, 1, left);
  }
}

void otrack_follower_close(otrack_follower* follower) {
  delete follower;
}

namespace {

// Throws an error number when the time is over or the service goes.
void wait_for(otrack_follower& follower, const std::set<std::string>& names, std::uint32_t state,
              int timeout_ms) {
  const auto end =
      std::chrono::steady_clock::now() + std::chrono::milliseconds(std::max(timeout_ms, 0));
  std::set<std::string> there;
  while (there.size() < names.size()) {
    const otrack_event* event = nullptr;
    const int result =
        otrack_follower_next(&follower, timeout_ms < 0 ? -1 : left_until(end), &event);
    if (result <= 0) {
      throw result < 0 ? result
                       : ot::client::fail(follower.client(), OTRACK_ERR_TIMEOUT,
                                          otrack_strerror(OTRACK_ERR_TIMEOUT));
    }
    ot::client::note_track(*event, state, there);
  }
}

}  // namespace

int otrack_wait(otrack_client* client, const char* const* names, size_t count, uint32_t state,
                int timeout_ms) {
  return ot::client::attempt(client, [=] {
    ot::client::refuse_unless(state <= OTRACK_DOWN, "there is no such state");
    const std::vector<std::string> given = taken(names, count);
    for (const std::string& name : given) {
      if (trackctl::read_track(name).empty()) {
        throw ot::client::fail(*client, OTRACK_ERR_NO_TRACK,
                               ("there is no track \"" + name + '"').c_str());
      }
    }
    if (given.empty()) {
      return;
    }
    otrack_follower follower(*client, given, false, otrack_follower::begin::waits);
    wait_for(follower, {given.begin(), given.end()}, state, timeout_ms);
  });
}
