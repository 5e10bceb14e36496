// The published state of one track, as a word and as the exit status of "state".
#pragma once

#include <string>

#include "tools/trackctl/command.h"

namespace ot::trackctl {

// exit_done for up, exit_down, or exit_unknown: nothing was published yet, or the track follows
// something that has no result. Throws.
exit_status read_state(const std::string& track);

// "up", "down" or "unknown".
const char* state_word(exit_status state);

}  // namespace ot::trackctl
