// What `trackctl watch` shows, kept up to date: read whole at first and every few seconds, changed
// by events meanwhile.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "tools/trackctl/events.h"
#include "tools/trackctl/history.h"
#include "tools/trackctl/live_table.h"

namespace ot::trackctl {

class live_tracks {
 public:
  // `names`: only these; none: all. Follows events from here on. Throws, as the others do.
  explicit live_tracks(std::vector<std::string> names);

  // Reads everything when the last time is long ago, or an event told of a track that is new.
  void refresh();
  // Takes the events that wait.
  void take_events();

  // Readable when an event waits.
  [[nodiscard]] int descriptor() const noexcept { return events_.descriptor(); }
  [[nodiscard]] const std::vector<live_track>& tracks() const noexcept { return tracks_; }
  [[nodiscard]] const kept_history& history() const noexcept { return history_; }

 private:
  void note(const evdl_track_event& event);

  std::vector<std::string> names_;
  event_subscription events_{{}};
  std::vector<live_track> tracks_;
  kept_history history_;
  std::chrono::steady_clock::time_point read_at_{};
  bool stale_ = true;
};

}  // namespace ot::trackctl
