// Reads what there is to know of a track and of all that it stands on.
#pragma once

#include "tools/trackctl/explain/facts.h"

namespace ot::trackctl::explain {

// Throws when there is no such track.
site gather(const std::string& name);

}  // namespace ot::trackctl::explain
