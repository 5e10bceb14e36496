// Which return code an errno value means. What is not in the table has nothing to do with the
// target: the probe could not be made at all.
#include "tools/qmond/return_code.h"

#include <array>
#include <cerrno>

namespace ot::qmond {
namespace {

struct errno_row {
  int error;
  return_code code;
};

constexpr std::array errno_rows{
    errno_row{ETIMEDOUT, return_code::no_answer},
    errno_row{EHOSTUNREACH, return_code::unreachable},
    errno_row{ENETUNREACH, return_code::unreachable},
    errno_row{EHOSTDOWN, return_code::unreachable},
    errno_row{ENETDOWN, return_code::unreachable},
    errno_row{EACCES, return_code::unreachable},  // a prohibiting route or filter
    errno_row{EPERM, return_code::unreachable},
    errno_row{ENOPROTOOPT, return_code::unreachable},
    errno_row{EPROTO, return_code::unreachable},
    errno_row{ECONNREFUSED, return_code::refused},
    errno_row{ECONNRESET, return_code::refused},
};

}  // namespace

return_code code_of_errno(int error) noexcept {
  for (const errno_row& row : errno_rows) {
    if (row.error == error) {
      return row.code;
    }
  }
  return return_code::cannot_run;
}

}  // namespace ot::qmond
