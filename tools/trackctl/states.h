// The state of every track as the running service has it at one moment, to the millisecond: what it
// has published, what its source says, and the delay that runs.
#pragma once

#include <vector>

#include "platform/ledger.h"
#include "tools/what_if/question.h"

namespace ot::trackctl {

// In the service's order. Throws.
std::vector<what_if::present_track> read_states();

// The same of what the ledger has answered to who asked for the item itself: its status code and
// the item.
inline constexpr const char* all_states_path = "/oper/object_tracking/gl/states/all";
std::vector<what_if::present_track> states_of(int code, const ledger_value& value);

// "up", "down", "unknown".
const char* word_of(track_state state) noexcept;

}  // namespace ot::trackctl
