// The poll of a probe track, every two seconds. Main thread.
#pragma once

#include <cstdint>

namespace ot {

// Reads the operation's latest result, publishes the state it means and goes on in two seconds,
// unless the publication failed. `value` is not used. The publication's result; 0 for a track that
// is gone or follows something else: its poll ends.
int ot_prb_read_shm_after_timer_expired(const char* name, std::uint32_t value);

}  // namespace ot
