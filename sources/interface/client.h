// The service's client of the interface manager: the connection, look-ups by name and handle, and
// its notifications. Main thread.
#pragma once

#include <cstdint>

#include "platform/evm.h"
#include "platform/interface_manager.h"

namespace ot {

// Filled by the open routine, used by every call.
extern ifc_conn_ctx ot_ifm_conn_ctx;

// Opens the event connection on `manager`. 0 or open_in_progress; any other result ends the process
// with 1 after an INIT_FAIL message: the service is of no use without interfaces.
int ot_init(evm* manager);

// Open routine of the event connection: binds, registers the callback and the two attributes that
// decide whether a tracked interface is up. `manager` is the evm. A held connection is dropped
// first; interface entries stay and are corrected by the next notifications. The connection's id,
// or evm_no_connection.
std::uint32_t ot_ifm_open_func(void* manager);

// Drops the connection.
void ot_ifm_close() noexcept;

// Name to handle, handle to name, handle to line state; the API error if there is one, else the
// item's status. `buffer` has 64 bytes and gets the returned name even when the call failed; flags
// are always 0.
int ot_dpv_get_ifhandle(const char* ifname, std::uint32_t* ret_ifhandle) noexcept;
int ot_dpv_get_ifname(char* buffer, std::uint32_t ifhandle) noexcept;
int ot_ifc_state_query(std::uint32_t ifhandle, std::uint32_t flags,
                       std::uint32_t* ret_state) noexcept;

// The callback for bulk notifications; 0. A message with another code than the bulk code, and items
// without attributes, change nothing.
int ot_ifm_handler(evm* manager, const ifc_bulk_notification* message);

}  // namespace ot
