// The service's history of changes: reading it, how long each state lasted, how often and how long
// a track was up, and the two renderings of `trackctl history`.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/json.h"
#include "tools/trackctl/times.h"

namespace ot::trackctl {

struct past_change {
  std::uint64_t number = 0;
  moment when;
  std::string track;
  std::string from;  // "up", "down", "unknown"
  std::string to;
  std::string cause;                   // "object", "delay", "list", "configuration", "restart"
  std::optional<milliseconds> lasted;  // the state before, where its begin is known
};

struct kept_history {
  moment since;          // when the service began it
  bool complete = true;  // false: it has forgotten the oldest
  std::vector<past_change> changes;
};

// The whole history, oldest first, with `lasted` filled in. Throws.
kept_history read_history();

// Adds what has come since then, and says whether anything has; a history that has begun anew takes
// the place of the old one. Throws.
bool read_on(kept_history& history);

// Fills in how long each state lasted before it changed.
void fill_lasted(std::vector<past_change>& changes);

// What a track did from `begin` on.
struct track_summary {
  std::string track;
  std::string state;  // now
  moment begin;
  moment end;
  std::uint32_t flaps = 0;  // changes from up to anything else
  moment::duration up{0};
};

// `state` is the track's present one, or "gone". A track's time begins with the history when its
// state then is known, else with its first change; not before `since`. It ends now, or, of one that
// is gone, with its last change.
track_summary summary_of(const kept_history& history, const std::string& track,
                         const std::string& state, moment since, moment now);

// The changes of `track` ("" for all) from `since` on.
kept_history chosen(const kept_history& history, const std::string& track, moment since);

// A line a change below a heading; what is kept is said first.
std::string history_text(const kept_history& shown);
std::string summary_text(const track_summary& summary);

// {"since", "complete", "changes": [{"time", "track", "from", "to", "cause", "lasted_ms"}], and
// with a summary "summary": {"track", "state", "since", "until", "flaps", "up_ms",
// "up_percent"}}.
nlohmann::ordered_json history_json(const kept_history& shown,
                                    const std::optional<track_summary>& summary);

}  // namespace ot::trackctl
