// The live table of `trackctl watch`, as lines of styled text: what stands where for a screen of
// any size. Drawing it is the business of tools/trackctl_watch/.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "tools/trackctl/history.h"
#include "tools/trackctl/times.h"

namespace ot::trackctl {

struct live_track {
  std::string name;
  std::string state;            // "up", "down", "unknown"
  std::optional<moment> since;  // none before the first publication
};

enum class live_style { plain, heading, up, down, unknown };

struct live_span {
  std::string text;
  live_style style = live_style::plain;
};
using live_line = std::vector<live_span>;

struct live_screen {
  std::size_t width = 80;
  std::size_t height = 24;
  std::size_t first = 0;  // the track on the first row
  bool blocks = true;     // block characters can be shown; else letters
};

// How much of each part of the time from `begin` to `end` the track was up, 0 to 1; nothing for
// parts in which its state is not known.
std::vector<std::optional<double>> up_shares(const kept_history& history, const live_track& track,
                                             moment begin, moment end, std::size_t parts);

// How many rows a screen has for tracks.
std::size_t live_rows(const live_screen& screen) noexcept;

// At most `height` lines of at most `width` columns. `tracks` are in the order of their names.
std::vector<live_line> live_lines(const std::vector<live_track>& tracks,
                                  const kept_history& history, moment now,
                                  const live_screen& screen);

}  // namespace ot::trackctl
