// The ledger's server side, hosted by the service's process.
#pragma once

#include "platform/evm.h"

namespace ot {

// Opens the stores below OT_ROOT, makes this process the ledger (ledger_* calls go straight to the
// stores from here on) and listens on the socket. Registers its flush with the manager. A second
// instance on the same root is refused. On failure a text for the operator is written to `error`
// (`size` bytes). 0 or a status code.
int ledger_server_open(evm* manager, char* error, unsigned size) noexcept;

// From here on clients are served; before, they may connect but wait. Called when the service is
// ready.
void ledger_server_serve() noexcept;

// Puts the copy of the last good configuration in the place of the store, for the operator; the
// service must not run. `text` (`size` bytes) says what was done, or why nothing was. 0 or a status
// code.
int ledger_server_restore(char* text, unsigned size) noexcept;

// Closes the socket and the stores; what was written is kept.
void ledger_server_close() noexcept;

}  // namespace ot
