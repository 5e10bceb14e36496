// A call on the ledger's socket, as sd_bus_call makes it, but for signals: those that a program
// handles end no wait of ours.
#pragma once

#include <cstdint>

#include "platform/ledger/client/bus.h"

namespace ot {

// Sends `request` and waits at most so long for its answer. 0 with the answer, or a negative errno:
// -ETIMEDOUT when none came in time, -ECONNRESET when the connection ended before.
int call_and_wait(sd_bus* bus, sd_bus_message* request, std::uint64_t timeout_us,
                  message_handle& ret) noexcept;

// Waits at most until that moment for something to process. 0 or a negative errno.
int wait_until_us(sd_bus* bus, std::uint64_t end_us) noexcept;

}  // namespace ot
