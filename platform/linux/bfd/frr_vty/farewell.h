// The clean end: what is ours in bfdd is taken away. The loop does not run any more, so that this
// waits for bfdd's answers, for a limited time; what is left then the next run finds by its mark.
#pragma once

#include "platform/linux/bfd/frr_vty/connection.h"
#include "platform/linux/bfd/frr_vty/session_table.h"

namespace ot::bfd::vty {

// `our_log`: bfdd logs sessions because we told it to. Throws bad_alloc.
void say_farewell(connection& bfdd, const session_table& sessions, bool our_log);

// bfdd has that long for an answer.
inline constexpr int farewell_patience_ms = 300;

}  // namespace ot::bfd::vty
