// The ways in which qmond ends without having done its work, and its exit statuses.
#pragma once

#include <stdexcept>
#include <string>

namespace ot::qmond {

enum exit_status : int {
  exit_done = 0,
  exit_failed = 1,  // the reason is on standard error
  exit_usage = 2,
  exit_not_running = 3,
};

// `main` prints the text behind "qmond: " and exits.
struct failure : std::runtime_error {
  failure(exit_status exit, const std::string& text) : std::runtime_error(text), status(exit) {}
  exit_status status;
};

}  // namespace ot::qmond
