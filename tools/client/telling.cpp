// The queue grows first: what is not told is not known.
#include "tools/client/telling.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace ot::client {
namespace {

std::int64_t now_ms() noexcept {
  using namespace std::chrono;
  return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

}  // namespace

telling::telling(std::vector<std::string> names) : names_(std::move(names)) {
  std::sort(names_.begin(), names_.end());
  names_.erase(std::unique(names_.begin(), names_.end()), names_.end());
}

bool telling::follows(const std::string& track) const {
  return names_.empty() || std::binary_search(names_.begin(), names_.end(), track);
}

void telling::tell(std::uint32_t kind) {
  queue_.push_back({.kind = kind, .time = now_ms(), .track = {}});
}

void telling::tell_state(const std::string& track, std::uint32_t state) {
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

void telling::take_states(const track_states& present) {
  synced_ ? compare_with(present) : begin_with(present);
}

void telling::begin_with(const track_states& present) {
  if (met_) {
    tell(OTRACK_EVENT_RESYNC);
  }
  known_.clear();
  fresh_.clear();
  compare_with(present);
  tell(OTRACK_EVENT_SYNCED);
  met_ = true;
  synced_ = true;
  for (const evdl_track_event& event : std::exchange(early_, {})) {
    take_event(event, false);
  }
}

void telling::compare_with(const track_states& present) {
  forget_all_but(present);
  for (const auto& [name, state] : present) {
    if (follows(name) && !fresh_.contains(name)) {
      tell_state(name, state);
    }
  }
}

void telling::forget_all_but(const track_states& present) {
  for (auto known = known_.begin(); known != known_.end();) {
    if (present.contains(known->first)) {
      ++known;
    } else if (fresh_.contains(known->first)) {
      wants_ = true;
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

void telling::take_event(const evdl_track_event& event, bool asked) {
  if (!synced_) {
    early_.push_back(event);
    return;
  }
  if (!follows(event.track)) {
    return;
  }
  if (event.state == OTRACK_UNKNOWN || !known_.contains(event.track)) {
    wants_ = true;
    return;
  }
  if (asked) {
    fresh_.insert(event.track);
  }
  tell_state(event.track, event.state);
}

void telling::lose() {
  early_.clear();
  if (std::exchange(synced_, false)) {
    tell(OTRACK_EVENT_LOST);
  }
}

void telling::ask() noexcept {
  wants_ = false;
  fresh_.clear();
}

const otrack_event* telling::next() noexcept {
  if (queue_.empty()) {
    return nullptr;
  }
  present_ = std::move(queue_.front());
  queue_.pop_front();
  event_ = {.kind = present_.kind,
            .state = present_.state,
            .previous = present_.previous,
            .reserved = 0,
            .time = present_.time,
            .track = present_.track.c_str()};
  return &event_;
}

void note_track(const otrack_event& event, std::uint32_t state, std::set<std::string>& there) {
  if (event.kind == OTRACK_EVENT_STATE && event.state == state) {
    there.emplace(event.track);
  } else if (event.kind == OTRACK_EVENT_STATE || event.kind == OTRACK_EVENT_DELETED) {
    there.erase(event.track);
  }
}

}  // namespace ot::client
