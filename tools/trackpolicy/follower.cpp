// Following without a gap: the subscription comes first, then the states are read, then the events
// that have come meanwhile are taken in. An event leaves before the state is stored, so the latest
// event of a track is never older than what was read. When the states are read again the events
// that wait stay what they are: there may be several of a track, and a policy that is told each.
#include "tools/trackpolicy/follower.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <memory>
#include <system_error>
#include <utility>

#include "platform/event_subscriber.h"
#include "platform/ledger.h"
#include "platform/ledger_status.h"
#include "platform/linux/short_slices.h"
#include "tools/daemon/lines.h"
#include "tools/trackctl/command.h"
#include "tools/trackctl/configuration.h"
#include "tools/trackctl/track.h"

namespace ot::trackpolicy {
namespace {

using std::chrono::steady_clock;

constexpr int retry_ms = 200;
// So long after the states were read they are read again, whatever comes meanwhile: that a track
// has been deleted is no event.
constexpr std::chrono::seconds compare_after{30};

struct unsubscribe {
  void operator()(evdl_subscriber* subscriber) const noexcept { evdl_unsubscribe(subscriber); }
};
using subscription = std::unique_ptr<evdl_subscriber, unsubscribe>;

bool note_item(void* context, std::string_view track, const ledger_value& value) {
  (*static_cast<known_states*>(context))[std::string(track)].state =
      value.as_u32() == 1 ? track_state::up : track_state::down;
  return true;
}

// A state that was published as "not up" may be that of a probe without a result. Throws
// trackctl::failure.
known_states read_states(foundations& ret_tracks) {
  known_states found;
  const probe_interfaces probes = read_probe_interfaces();
  {
    const trackctl::ledger_connection connection(trackctl::states_root);
    const int code = ledger_item_walk(connection.get(), "", note_item, &found);
    if (code != ledger_no_data) {
      trackctl::check_code("reading the states", code);
    }
  }
  trackctl::read_track_records([&](const track_info__& record) {
    ret_tracks.note(record, probes);
    const auto track = found.find(record.TrackeName.view());
    if (track != found.end()) {
      track->second.since = static_cast<std::uint64_t>(record.SecondsLastChange);
      if (track->second.state == track_state::down && trackctl::awaits_result(record)) {
        track->second.state = track_state::unknown;
      }
    }
  });
  return found;
}

known_state state_of(const evdl_track_event& event) {
  return {.state = event.state <= 2 ? static_cast<track_state>(event.state) : track_state::unknown,
          .since = static_cast<std::uint64_t>(std::time(nullptr))};
}

// Milliseconds until then, rounded up; 0 when it has come.
int left_until(steady_clock::time_point when) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(when - steady_clock::now());
  return static_cast<int>(std::max<std::int64_t>(left.count(), 0));
}

void take_count(int fd) noexcept {
  std::uint64_t count = 0;
  (void)!read(fd, &count, sizeof count);
}

void count_up(int fd) noexcept {
  const std::uint64_t one = 1;
  (void)!write(fd, &one, sizeof one);
}

}  // namespace

follower::follower()
    : wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      stop_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      look_again_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (!wake_.valid() || !stop_.valid() || !look_again_.valid()) {
    throw std::system_error(errno, std::generic_category(), "eventfd");
  }
  thread_ = std::thread([this] { run(); });
}

follower::~follower() {
  count_up(stop_.get());
  thread_.join();
}

std::deque<news> follower::take() {
  take_count(wake_.get());
  const std::lock_guard held(lock_);
  return std::exchange(queue_, {});
}

void follower::post(news what) {
  {
    const std::lock_guard held(lock_);
    queue_.push_back(std::move(what));
  }
  count_up(wake_.get());
}

bool follower::stopped_within(int milliseconds) const {
  pollfd one{.fd = stop_.get(), .events = POLLIN, .revents = 0};
  return poll(&one, 1, milliseconds) > 0;
}

void follower::run() {
  ask_for_short_slices(500);
  while (!stopped_within(0)) {
    try {
      follow();
    } catch (const trackctl::failure& error) {
      // It will be asked again; that it is not there at all is no news.
      if (error.status != trackctl::exit_no_service) {
        say(std::string("trackpolicy: ") + error.what());
      }
    }
    if (std::exchange(connected_, false)) {
      post({.kind = news::what::gone});
    }
    if (stopped_within(retry_ms)) {
      return;
    }
  }
}

void follower::guard(std::set<std::string> tracks) {
  const bool any = !tracks.empty();
  {
    const std::lock_guard held(lock_);
    guarded_ = std::move(tracks);
  }
  if (any) {
    count_up(look_again_.get());
  }
}

void follower::take_changes(std::vector<news> changes) {
  bool grave = false;
  {
    const std::lock_guard held(lock_);
    grave = std::any_of(changes.begin(), changes.end(), [this](const news& each) {
      return each.state.state != track_state::up && guarded_.contains(each.track);
    });
  }
  if (grave) {
    foundations& now = changes.front().tracks.emplace();
    const probe_interfaces probes = read_probe_interfaces();
    trackctl::read_track_records([&](const track_info__& record) { now.note(record, probes); });
  }
  for (news& each : changes) {
    post(std::move(each));
  }
}

// Until the service goes away or we are to stop.
void follower::follow() {
  evdl_subscriber* made = nullptr;
  trackctl::check_code("following events", evdl_subscribe({}, &made));
  const subscription events(made);
  const char* reason = met_ ? "reconnected" : "start";
  std::array<pollfd, 3> ready{
      pollfd{.fd = stop_.get(), .events = POLLIN, .revents = 0},
      pollfd{.fd = look_again_.get(), .events = POLLIN, .revents = 0},
      pollfd{.fd = evdl_subscriber_fd(made), .events = POLLIN, .revents = 0}};
  int code = status_ok;
  steady_clock::time_point compare_at{};
  while (code == status_ok && ready[0].revents == 0) {
    if (left_until(compare_at) == 0 || ready[1].revents != 0) {
      take_count(look_again_.get());
      foundations tracks;
      known_states states = read_states(tracks);
      news all{.kind = news::what::states,
               .states = std::move(states),
               .reason = reason,
               .tracks = std::move(tracks)};
      if (!std::exchange(connected_, true)) {
        // Those that have come since the subscription. Later each of them is told.
        code = evdl_receive(made, 0, [&all](const evdl_track_event& event) {
          all.states[event.track] = state_of(event);
        });
      }
      post(std::move(all));
      met_ = true;
      reason = "change";
      compare_at = steady_clock::now() + compare_after;
    } else {
      std::vector<news> changes;
      code = evdl_receive(made, 0, [&changes](const evdl_track_event& event) {
        changes.push_back(
            {.kind = news::what::change, .track = event.track, .state = state_of(event)});
      });
      take_changes(std::move(changes));
    }
    if (code == status_ok) {
      (void)poll(ready.data(), ready.size(), left_until(compare_at));
    }
  }
}

}  // namespace ot::trackpolicy
