// The service's start-up beyond what the process framework calls.
#pragma once

#include "platform/service.h"

namespace ot {

// Drops everything ot_start and the configuration made in this process; nothing is published or
// deleted from the ledger. For tests that start the service again.
void ot_stop() noexcept;

}  // namespace ot
