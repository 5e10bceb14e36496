#include "tools/trackctl/live_tracks.h"

#include <algorithm>
#include <map>
#include <utility>

#include "tools/trackctl/track.h"

namespace ot::trackctl {
namespace {

using clock = std::chrono::steady_clock;

// Tracks that come without being published, or go while they are down, send no event.
constexpr auto longest_age = std::chrono::seconds(5);

std::vector<live_track> read_tracks_now(const std::vector<std::string>& names) {
  const auto extras = read_track_extras();
  std::vector<live_track> tracks;
  read_track_records([&](const track_info__& record) {
    const std::string name(record.TrackeName.view());
    if (!names.empty() && std::find(names.begin(), names.end(), name) == names.end()) {
      return;
    }
    const auto found = extras.find(name);
    const auto shown =
        track_to_json(record, found == extras.end() ? track_extras{} : found->second);
    live_track track{name, shown["state"].get<std::string>(), std::nullopt};
    if (!shown["last_change"].is_null()) {
      track.since = parse_json_time(shown["last_change"].get<std::string>());
    }
    tracks.push_back(std::move(track));
  });
  std::sort(tracks.begin(), tracks.end(),
            [](const live_track& one, const live_track& other) { return one.name < other.name; });
  return tracks;
}

}  // namespace

live_tracks::live_tracks(std::vector<std::string> names) : names_(std::move(names)) {
  refresh();
}

void live_tracks::refresh() {
  const auto now = clock::now();
  if (!stale_ && now - read_at_ < longest_age) {
    return;
  }
  tracks_ = read_tracks_now(names_);
  read_on(history_);
  read_at_ = now;
  stale_ = false;
}

void live_tracks::take_events() {
  bool any = false;
  events_.receive(0, [&](const evdl_track_event& event) {
    note(event);
    any = true;
  });
  if (any) {
    read_on(history_);
    refresh();
  }
}

void live_tracks::note(const evdl_track_event& event) {
  const auto found = std::lower_bound(
      tracks_.begin(), tracks_.end(), event.track,
      [](const live_track& track, const std::string& name) { return track.name < name; });
  if (found == tracks_.end() || found->name != event.track || event.state == 0) {
    // A new one, or perhaps one that goes.
    stale_ = stale_ || names_.empty() || found != tracks_.end();
    return;
  }
  const std::string state = event_state_word(event.state);
  found->since =
      found->state == state && found->since ? found->since : std::chrono::system_clock::now();
  found->state = state;
}

}  // namespace ot::trackctl
