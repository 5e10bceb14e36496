// The process framework: the frame in which the service runs, from the first signal mask to the
// last store.
#pragma once

namespace ot {

// Runs the service in the foreground until it is told to stop (SIGTERM, SIGINT). Returns 1 when it
// cannot start; ends the process otherwise.
int run_service();

}  // namespace ot
