// Requests to the BFD service, and the state of its connection. Main thread.
#pragma once

#include <atomic>
#include <cstdint>

#include "core/track.h"

namespace ot {

// 1 while the BFD service is connected.
extern std::uint32_t is_ot_bfd_connection_up;
// 1 when the last bind succeeded; the BFD thread reads it.
extern std::atomic<std::uint32_t> is_ot_bfd_bind_done;

// The client context, made by the BFD thread: always names the track of the latest request, which
// only the main thread writes. Results are matched by session, not by this name.
extern std::atomic<track_name*> ot_bfd_ctx;

// Ask for the track's session, or for its end. `session` gets the session id, after a creation its
// entry the number of the request. 0, 12, or the error of the call or of its result.
int ot_bfd_create_single_session(const char* name, bfd_object* session) noexcept;
int ot_bfd_delete_single_session(const char* name, bfd_object* session) noexcept;

}  // namespace ot
