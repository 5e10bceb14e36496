// Tracks as people read them on a terminal: a table in the order of names that fits the width, and
// all there is to know of one.
#pragma once

#include <string>
#include <vector>

#include "tools/json.h"
#include "tools/trackctl/terminal.h"
#include "tools/trackctl/times.h"

namespace ot::trackctl {

// A track as JSON (track.h), and what was configured in the words of `set`.
struct seen_track {
  nlohmann::ordered_json track;
  std::string words;  // "interface eth0"
};

// Both put the tracks into the order of their names. A line each:
std::string overview_text(std::vector<seen_track> tracks, const terminal& output, moment now);
// State, object, delays, what runs, limits, members with their weights, changes:
std::string details_text(std::vector<seen_track> tracks, const terminal& output, moment now);

}  // namespace ot::trackctl
