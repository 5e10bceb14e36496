// The network namespace that the service runs in, whose interfaces and routes its tracks follow.
#pragma once

#include <string>

namespace ot::trackctl::explain {

// Makes it this thread's. Empty, or why what the kernel says may be of another one: it is another,
// and only root may enter it.
std::string enter_namespace_of_service();

}  // namespace ot::trackctl::explain
