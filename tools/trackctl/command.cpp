// How the platform's status codes become what the operator reads.
#include "tools/trackctl/command.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iostream>

#include "platform/common/root_path.h"
#include "platform/component_status.h"
#include "platform/err_string.h"
#include "platform/ledger_status.h"

namespace ot::trackctl {
namespace {

struct code_advice {
  int code;
  const char* advice;
};

constexpr std::array advices{
    code_advice{ledger_denied, "run it as root or as a member of the group object_tracking"},
    code_advice{ledger_not_available, "this build of the service cannot track such objects"},
    code_advice{ledger_no_answer, "look at what it is doing: `systemctl status object_tracking`"},
    code_advice{ledger_busy, "try again, or end programs that follow it"},
    code_advice{ledger_full, "delete what is no longer needed; deleting still works"},
    code_advice{track_type_conflict, "delete the track first, then set it anew"},
    code_advice{too_many_tracks, "1500 tracks are configured; delete one first"},
};

}  // namespace

std::string code_text(int code) {
  std::array<char, 16> number{};
  (void)std::snprintf(number.data(), number.size(), " (0x%x)", static_cast<unsigned>(code));
  std::string text = std::string(err_string(code)) + number.data();
  for (const code_advice& row : advices) {
    if (row.code == code) {
      text += "; ";
      text += row.advice;
    }
  }
  return text;
}

void fail_with_code(const std::string& what, int code) {
  if (code == ledger_unreachable) {
    throw failure(exit_no_service, "the service is not running below " +
                                       root_path("/run/object_tracking") +
                                       "; start object_tracking, or set OT_ROOT to where it runs");
  }
  if (code == ledger_no_answer) {
    throw unanswered(exit_refused, what + ": " + code_text(code));
  }
  if (code == no_memory) {
    throw memory_lacking(exit_refused, what + ": " + code_text(code));
  }
  throw failure(exit_refused, what + ": " + code_text(code));
}

void check_code(const std::string& what, int code) {
  if (code != status_ok) {
    fail_with_code(what, code);
  }
}

void refuse_errors(const std::vector<std::string>& errors) {
  constexpr std::size_t shown = 100;
  if (errors.empty()) {
    return;
  }
  std::string text = errors.size() == 1
                         ? "1 error, nothing is changed:"
                         : std::to_string(errors.size()) + " errors, nothing is changed:";
  for (std::size_t at = 0; at < std::min(errors.size(), shown); ++at) {
    text += "\n  " + errors[at];
  }
  if (errors.size() > shown) {
    text += "\n  ... and " + std::to_string(errors.size() - shown) + " more";
  }
  throw failure(exit_usage, text);
}

}  // namespace ot::trackctl
