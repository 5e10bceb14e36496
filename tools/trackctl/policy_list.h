// What the running trackpolicy says of all its policies.
#pragma once

#include <string>

namespace ot::trackctl {

// A list of JSON objects, as status_json() of tools/trackpolicy/status_socket.h makes it. Throws
// failure, with exit_no_service when trackpolicy is not running.
std::string read_policy_list();

}  // namespace ot::trackctl
