// evm_: the event manager, one loop a thread. `evm_block` waits for the next event and
// `evm_dispatch` runs exactly one handler; everything in the service happens inside such a handler.
// A manager belongs to the thread that runs it; only evm_post and evm_raise may come from others.
#pragma once

#include <cstdint>

namespace ot {

struct evm;
struct evm_conn;

// 0 and the manager, which the caller frees with evm_destroy, or a status code.
int evm_create(evm** ret) noexcept;
void evm_destroy(evm* manager) noexcept;

// Waits until an event is ready. 0: call evm_dispatch. Any other value is a failure of the wait;
// 4 (EINTR) is harmless.
int evm_block(evm* manager) noexcept;

// Runs the one handler that is due; 0, or a status code when there was none.
int evm_dispatch(evm* manager);

// Runs `task(argument)` on the manager's own thread, after everything posted before it. 0 or 12.
// Any thread.
using evm_task = void (*)(void* argument);
int evm_post(evm* manager, evm_task task, void* argument) noexcept;

// --- Asynchronous events ---------------------------------------------------------------------

using evm_async_handler = void (*)(void* argument);

// Makes `handler` the handler of event `code`. The code, or -1.
int evm_async_attach(evm* manager, int code, evm_async_handler handler, void* argument) noexcept;

// Describes how a library raises an attached event.
struct evm_sigevent {
  evm* manager = nullptr;
  int code = 0;
};
// Fills `ret` for the attached `code`; 0, or 22 when nothing is attached there. The two words are
// reserved.
int evm_init_sigevent(evm* manager, int code, std::uint32_t, std::uint32_t,
                      evm_sigevent* ret) noexcept;

// Makes the event pending; raising a pending event again adds nothing. Any thread.
void evm_raise(const evm_sigevent& event) noexcept;

// --- Event connections -----------------------------------------------------------------------
// A connection is an open routine that the manager calls, and calls again while it fails and when
// the connection ends.

inline constexpr std::uint32_t evm_no_connection = 0xFFFFFFFF;

// Opens; the connection's id, or evm_no_connection.
using evm_conn_open_func = std::uint32_t (*)(void* context);
// Called with an event of the connection: one of the bits of the registered mask.
using evm_conn_event_func = void (*)(evm_conn* connection, std::uint32_t event);

inline constexpr std::uint32_t evm_conn_closed = 0x2000;
inline constexpr std::uint32_t evm_conn_failed = 0x4000;

// 0 and the connection, which lives as long as the manager; or a status code. `kind` is handed
// through to the platform.
int evm_conn_create(evm* manager, evm_conn_open_func open, void* context, std::uint32_t kind,
                    evm_conn** ret) noexcept;
// Delay before the first and the longest delay before any later attempt, seconds.
int evm_conn_setretry(evm_conn* connection, std::uint32_t first, std::uint32_t longest) noexcept;
int evm_conn_notify(evm_conn* connection, std::uint32_t mask, evm_conn_event_func handler) noexcept;

// Calls the open routine. 0 when it opened; open_in_progress when it failed and the manager goes
// on trying; another code when trying is pointless.
int evm_conn_open(evm_conn* connection) noexcept;

// For client libraries: the connection with this id has ended. The event handler is called (`event`
// is one of the bits above) and the open routine is tried again. Unknown ids are ignored.
void evm_conn_ended(evm* manager, std::uint32_t connection_id, std::uint32_t event) noexcept;

}  // namespace ot
