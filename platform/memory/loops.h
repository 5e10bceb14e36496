// What the in-memory services need of the event manager. For the files of this folder.
#pragma once

#include <functional>

#include "platform/event_manager.h"

namespace ot {

// Has `work` run as one handler of the manager's loop, behind what is pending. Nothing happens for
// a manager that has been destroyed. Any thread.
void loop_post(evm* manager, std::function<void()> work) noexcept;

// The calling thread is the one that runs this loop; a test waits for it from now on.
void loop_runs_here(evm* manager) noexcept;

// Drops the manager's connections; their open routines are not called any more.
void connections_end(evm* manager) noexcept;

}  // namespace ot
