// From the leaves upwards: what each track needs to come to the other state. Quick for any number
// of tracks, but a member that two lists share, or two tracks on one object, can make its answer
// one that is not the smallest, or that does not do.
#pragma once

#include <optional>
#include <string>

#include "tools/trackctl/explain/facts.h"
#include "tools/trackctl/explain/remedy.h"

namespace ot::trackctl::explain {

std::optional<changes> likely_remedy(const site& tracks, const std::string& list);

}  // namespace ot::trackctl::explain
