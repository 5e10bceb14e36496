// evm_: the event manager, one loop a thread. `evm_block` waits for the next event and
// `evm_dispatch` runs exactly one handler; everything in the service happens inside such a handler.
// A manager belongs to the thread that runs it; only evm_post and evm_raise may come from others.
#pragma once

#include <cstdint>

#include "platform/evm.h"

namespace ot {

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

// Fills `ret` for the attached `code`; 0, or 22 when nothing is attached there. The two words are
// reserved.
int evm_init_sigevent(evm* manager, int code, std::uint32_t, std::uint32_t,
                      evm_sigevent* ret) noexcept;

// Makes the event pending; raising a pending event again adds nothing. Any thread.
void evm_raise(const evm_sigevent& event) noexcept;

}  // namespace ot
