// What the running service says of the services that its tracks need.
#pragma once

#include <string>
#include <vector>

#include "tools/trackctl/engine_view.h"

namespace ot::trackctl {

// Throws.
std::vector<engine_state> read_engine_states();

// Throws when a delay of this BFD track would reach the service before the track's session is made:
// the service would take the track for one without a session from then on. `made_anew`: the track
// is about to be created.
void require_session_before_delays(const std::string& track, bool made_anew);

}  // namespace ot::trackctl
