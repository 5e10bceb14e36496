// What would bring a list up: the fewest tracks, none of them a list, whose objects would have to
// come to another state.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>

#include "tools/trackctl/explain/facts.h"

namespace ot::trackctl::explain {

// Tracks that are no lists, and whether each has to be up.
using changes = std::map<std::string, bool, std::less<>>;

// None when no such changes are found: members are missing, lists contain each other, or what one
// needs is in another one's way. Each list is looked at once for either state, and what is found
// has been tried out against all rules.
std::optional<changes> find_remedy(const site& tracks, const std::string& list);

}  // namespace ot::trackctl::explain
