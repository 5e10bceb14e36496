// What would bring a list up: the fewest objects, of tracks that are no lists, that would have to
// come to another state. Each is named by one of its tracks; the others go along.
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
// needs is in another one's way. What is found has been tried out against all rules. Where very
// many objects would have to be tried, it may not be the smallest.
std::optional<changes> find_remedy(const site& tracks, const std::string& list);

}  // namespace ot::trackctl::explain
