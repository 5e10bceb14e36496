// Lists that contain each other: each waits for the other to be computed first, so as a rule none
// of them is. The service accepts them; `set` says so when its list becomes one of them.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tools/trackctl/configuration.h"

namespace ot::trackctl {

// Gives the members of a track; none when it is no list.
using members_reader = std::function<std::vector<std::string>(const std::string& track)>;

// The shortest way from a track through members back to it, the track first and last; empty when
// there is none. Asks for the members of each track once.
std::vector<std::string> find_cycle(const std::string& track, const members_reader& members_of);

// The members that the items of a track name; none when it is no list.
std::vector<std::string> list_members(const track_items& items);

// "warning: ...", of what find_cycle has found.
std::string cycle_warning(const std::vector<std::string>& cycle);

// Warns on standard error when the track, as it is configured now, is a list in a cycle. Says
// nothing when the configuration cannot be read.
void warn_of_cycle(const std::string& track);

}  // namespace ot::trackctl
