// The process.
#pragma once

namespace ot::trackpolicy {

// Runs in the foreground until SIGTERM or SIGINT; SIGHUP reads the policies again. Throws failure
// or std::system_error when it cannot start. Returns the exit status.
int run_daemon();

}  // namespace ot::trackpolicy
