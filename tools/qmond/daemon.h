// The probe service itself.
#pragma once

namespace ot::qmond {

inline constexpr const char* config_path = "/etc/object_tracking/probes.toml";

// Runs in the foreground until SIGTERM or SIGINT; SIGHUP reads the configuration again. Throws
// failure or std::system_error when it cannot start. Returns the exit status.
int run_daemon();

}  // namespace ot::qmond
