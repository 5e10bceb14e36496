// The service's client of the BFD service: the "ot_bfd" thread, which owns the client and the loop
// that its callbacks come on; the callbacks; and the requests for sessions.
#pragma once

#include <atomic>
#include <cstdint>

#include "core/track.h"
#include "platform/bfd_client.h"
#include "platform/evm.h"

namespace ot {

// --- The thread ---------------------------------------------------------------------------------

// 1 while the thread runs its loop.
extern std::atomic<std::uint32_t> is_ot_bfd_init_done;
// 1 when the last bind succeeded. The main thread writes it, the BFD thread reads it.
extern std::atomic<std::uint32_t> is_ot_bfd_bind_done;
// 1 while the BFD service is connected. Main thread.
extern std::uint32_t is_ot_bfd_connection_up;

// The client context, made by the BFD thread: always names the track of the latest request, which
// only the main thread writes. Results are matched by session, not by this name.
extern std::atomic<track_name*> ot_bfd_ctx;

// Starts the thread, once; a thread that ended without binding may be started anew. `manager` is
// the main loop, which events are handed to. 0 or a status code. Main thread.
int ot_bfd_init(evm* manager) noexcept;

// The thread has ended, or was not started: nobody will connect. Any thread.
bool ot_bfd_ended() noexcept;

// Ends the thread and waits for it: the end of a service in a test. Main thread.
void ot_bfd_stop() noexcept;

// The thread's body on its own loop `manager`: names the thread, binds, and runs the loop until it
// fails or is to stop.
void* ot_bfd_thread(void* manager);

// Binds the client on `manager`. 0, 22 for a null manager, or the service's error.
int ot_bfd_bind(evm* manager) noexcept;

// --- The callbacks ------------------------------------------------------------------------------

// They run on the BFD thread, copy what they get, and hand it to the main thread; what comes first
// is applied first.
void ot_bfd_bind_handler(const bfdc_bind_result* result);
void ot_bfd_conn_handler(const bfdc_connection_status* status);
void ot_bfd_req_handler(const bfdc_request_result* result);
void ot_bfd_scn_handler(const bfdc_event* event);

// The loop the events are handed to. Before the thread starts.
void ot_bfd_set_main_loop(evm* manager) noexcept;
// Forgets what was handed over and not applied yet. After the thread has ended.
void ot_bfd_drop_events() noexcept;

// --- Requests -----------------------------------------------------------------------------------

// Ask for the track's session, or for its end. `session` gets the session id, after a creation its
// entry the number of the request. 0, 12, or the error of the call or of its result. Main thread.
int ot_bfd_create_single_session(const char* name, bfd_object* session) noexcept;
int ot_bfd_delete_single_session(const char* name, bfd_object* session) noexcept;

}  // namespace ot
