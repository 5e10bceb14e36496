// The state of every track as the running service has it at one moment, to the millisecond: what it
// has published, what its source says, and the delay that runs.
#pragma once

#include <vector>

#include "tools/what_if/question.h"

namespace ot::trackctl {

// In the service's order. Throws.
std::vector<what_if::present_track> read_states();

// "up", "down", "unknown".
const char* word_of(track_state state) noexcept;

}  // namespace ot::trackctl
