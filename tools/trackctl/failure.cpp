// Turns the platform's status codes into what the operator reads: what was tried, why it did not
// work and, where one is known, what would be right.
#include "tools/trackctl/failure.h"

#include <array>
#include <cstdio>

#include "platform/common/root_path.h"
#include "platform/status.h"

namespace ot::trackctl {
namespace {

struct code_advice {
  int code;
  const char* advice;
};

constexpr std::array advices{
    code_advice{ledger_denied, "run it as root or as a member of the group object_tracking"},
    code_advice{ledger_not_available, "this build of the service cannot track such objects"},
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
  throw failure(exit_refused, what + ": " + code_text(code));
}

void check_code(const std::string& what, int code) {
  if (code != status_ok) {
    fail_with_code(what, code);
  }
}

}  // namespace ot::trackctl
