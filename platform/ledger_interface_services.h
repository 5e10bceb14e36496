// ledger_: the services of the router's interfaces that follow a track. Their configuration is not
// the service's: the ledger keeps the items "/cfg/if/act/<interface>/<service>/track_name", whose
// text is a track's name, for whoever reads them. Inside the service's process only; main thread.
#pragma once

#include "platform/ledger_config.h"

namespace ot {

// Has `changed` called with every change of such an item once its commit is stored, as an apply
// function; its fields are the interface and the service. What is stored already is not reported.
// One at a time; null ends it.
void ledger_follow_interface_services(ledger_apply_fn changed) noexcept;

}  // namespace ot
