// Where the service has the members of each list, in the order in which they were given. The
// configuration's items do not tell.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace ot::trackctl {

// By the member's name; the first has place 0.
using member_places = std::map<std::string, std::size_t, std::less<>>;

// By the list's name. Throws.
std::map<std::string, member_places, std::less<>> read_member_places();

// Members without a place come last.
void put_in_order(const member_places& places, std::vector<std::string>& members);

}  // namespace ot::trackctl
