// The front-end entry of the executable and the service's start-up.
#pragma once

#include <cstdint>

#include "platform/event_manager.h"

namespace ot {

// Serves "show ..." and returns 0; ends the process with 1 when the trace flags cannot be set up.
int main(int argc, char** argv);

// Opens the interface manager connection on `manager`. 0 or open_in_progress; any other result ends
// the process with 1 after an INIT_FAIL message.
int ot_init(evm* manager);

// Runs every start-up step of the service in order: traces, tables, timers, the ledger binding,
// records and providers, the event publisher, interfaces, the restart flag, the configuration tree
// and its replay. The platform's manager and ledger are open. Returns 0, or the code of the step
// that failed, after an INIT_FAIL message that names it. Main thread.
int ot_start(evm* manager, std::uint32_t start_count);

// Drops everything ot_start and the configuration made in this process; nothing is published or
// deleted from the ledger. For tests that start the service again.
void ot_stop() noexcept;

}  // namespace ot
