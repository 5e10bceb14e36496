// The ways in which a command of trackctl ends without having done its work, and the exit statuses
// that scripts rely on.
#pragma once

#include <stdexcept>
#include <string>

namespace ot::trackctl {

enum exit_status : int {
  exit_done = 0,
  exit_refused = 1,  // refused or failed; the reason is on standard error
  exit_usage = 2,    // the command line is wrong; nothing was asked of the service
  exit_no_service = 3,
  exit_down = 10,  // "state" only
  exit_unknown = 11,
};

// Thrown by whatever cannot go on; `main` prints the text behind "trackctl: " and exits.
struct failure : std::runtime_error {
  failure(exit_status exit, const std::string& text) : std::runtime_error(text), status(exit) {}
  exit_status status;
};

// The text of a status code with its number and, where one is known, what would be right.
std::string code_text(int code);

// Throws for a platform status code: exit_no_service when the service is not running, else
// exit_refused. `what` says what was tried, for example "reading the configuration".
[[noreturn]] void fail_with_code(const std::string& what, int code);

// Throws as above unless `code` is 0.
void check_code(const std::string& what, int code);

}  // namespace ot::trackctl
