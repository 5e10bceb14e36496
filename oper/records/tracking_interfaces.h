// Which interfaces name a track in their own configuration: the items
// "/cfg/if/act/<interface>/service-<anything>/track_name", whose text is a track's name.
#pragma once

#include <string_view>

namespace ot {

// Reads the configuration and follows its changes from here on, so that no question has to read it.
// Once, when the service starts; what cannot be read is read with the first question. 0.
int read_tracking_interfaces() noexcept;

// Hands each interface that names `track` to `visit`, in path order and once each; a result other
// than 0 ends the call and is returned. Items that say nothing of use are traced and passed over,
// and so is a ledger that cannot be read. 0, 12, or what `visit` returned. Main thread.
using tracking_interface_visit = int (*)(void* context, std::string_view interface);
int visit_tracking_interfaces(std::string_view track, tracking_interface_visit visit,
                              void* context) noexcept;

// Gives up what is remembered of the configuration.
void forget_tracking_interfaces() noexcept;

}  // namespace ot
