// What ends trackpolicy, and with which exit status.
#pragma once

#include <stdexcept>
#include <string>

namespace ot::trackpolicy {

enum exit_status : int {
  exit_done = 0,
  exit_failed = 1,  // the reason is on standard error
  exit_usage = 2,
};

// `main` prints the text behind "trackpolicy: " and exits.
struct failure : std::runtime_error {
  failure(exit_status exit, const std::string& text) : std::runtime_error(text), status(exit) {}
  exit_status status;
};

}  // namespace ot::trackpolicy
