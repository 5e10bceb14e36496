// What the Linux platform's own files need of the event manager.
#pragma once

#include <systemd/sd-event.h>

#include "platform/event_manager.h"

namespace ot {

// The manager's loop, for attaching sources. Borrowed. A source's handler counts as the one handler
// of an evm_dispatch.
sd_event* evm_sd_event(evm* manager) noexcept;

// Has `flush(argument)` called at the start of every evm_block, in the order of registration: what
// a handler left to be done in one go (store, send, log) leaves the process before the loop waits.
int evm_add_flush(evm* manager, void (*flush)(void* argument), void* argument) noexcept;

// Calls the flush hooks now, for a loop that will not wait again.
void evm_flush(evm* manager) noexcept;

}  // namespace ot
