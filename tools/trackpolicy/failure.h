// What ends trackpolicy, and with which exit status.
#pragma once

#include "tools/program.h"

namespace ot::trackpolicy {

enum exit_status : int {
  exit_done = 0,
  exit_failed = 1,  // the reason is on standard error
  exit_usage = 2,
};

// With an exit_status.
using failure = tool_failure;

}  // namespace ot::trackpolicy
