// Answers a question. The service of this process is started and stopped for it, so no other may
// run. Main thread; the same answer to the same question, always.
#pragma once

#include "tools/what_if/question.h"

namespace ot::what_if {

// Throws std::exception when the service cannot be started on the router in memory.
answer simulate(const question& asked);

}  // namespace ot::what_if
