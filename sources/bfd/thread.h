// The "ot_bfd" thread: it owns the client of the BFD service and the loop its callbacks come on.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/event_manager.h"

namespace ot {

// 1 while the thread runs its loop.
extern std::atomic<std::uint32_t> is_ot_bfd_init_done;

// Starts the thread, once; a thread that ended without binding may be started anew. `manager` is
// the main loop, which events are handed to. 0 or a status code. Main thread.
int ot_bfd_init(evm* manager) noexcept;

// Ends the thread and waits for it: the end of a service in a test. Main thread.
void ot_bfd_stop() noexcept;

// The thread's body on its own loop `manager`: names the thread, binds, and runs the loop until it
// fails or is told to stop.
void* ot_bfd_thread(void* manager);

// Binds the client on `manager`. 0, 22 for a null manager, or the service's error.
int ot_bfd_bind(evm* manager) noexcept;

}  // namespace ot
