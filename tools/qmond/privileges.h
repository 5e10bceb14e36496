// Giving up what root or the service manager gave.
#pragma once

namespace ot::qmond {

// Drops every capability, for this process and all that it starts, for good. Throws
// std::system_error.
void drop_privileges();

}  // namespace ot::qmond
