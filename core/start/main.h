// The service's start-up beyond what the process framework calls.
#pragma once

#include "platform/event_manager.h"
#include "platform/service.h"

namespace ot {

// Opens the interface manager connection on `manager`. 0 or open_in_progress; any other result ends
// the process with 1 after an INIT_FAIL message.
int ot_init(evm* manager);

// Drops everything ot_start and the configuration made in this process; nothing is published or
// deleted from the ledger. For tests that start the service again.
void ot_stop() noexcept;

}  // namespace ot
