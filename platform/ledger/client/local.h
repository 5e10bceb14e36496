// The process that hosts the ledger serves itself.
#pragma once

#include "platform/ledger/calls/backend.h"

namespace ot {

// From now on calls from the calling thread go to `backend`, without a socket; those of its other
// threads still go through the socket, and those of its children. Null ends it.
void ledger_install_local(ledger_backend* backend) noexcept;

}  // namespace ot
