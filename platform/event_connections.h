// evm_conn_: event connections. A connection is an open routine that the manager calls, and calls
// again while it fails and when the connection ends.
#pragma once

#include <cstdint>

#include "platform/evm.h"
#include "platform/status.h"

namespace ot {

// The open routine failed, and the manager goes on trying.
inline constexpr int open_in_progress = status_code(0x21200e00);

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
