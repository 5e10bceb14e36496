// The program beside trackctl that answers questions of what-if (tools/what_if/question.h).
#pragma once

#include "tools/what_if/question.h"

namespace ot::trackctl {

// Starts it, asks, and waits for the answer. Throws when it is not there or fails.
what_if::answer ask_what_if(const what_if::question& asked);

}  // namespace ot::trackctl
