// ifc_: client of the interface manager. It gives every interface a handle, knows its line state
// and reports changes in bulk notifications. Main thread.
#pragma once

#include <cstdint>
#include <span>

#include "platform/evm.h"
#include "platform/fixed_text.h"

namespace ot {

using ifc_name = fixed_text<64>;

// Line states.
inline constexpr std::uint32_t ifm_state_unknown = 0;
inline constexpr std::uint32_t ifm_state_admin_down = 1;
inline constexpr std::uint32_t ifm_state_down = 2;
inline constexpr std::uint32_t ifm_state_up = 3;

// "IFM_STATE_UP" and so on; never null.
const char* ifm_state_name(std::uint32_t state) noexcept;

// Attributes that can be registered.
inline constexpr std::uint16_t ifc_attr_state = 1;        // value: a line state
inline constexpr std::uint16_t ifc_attr_redundancy = 66;  // value: 0 standby member, else 1

// A process's connection to the interface manager.
struct ifc_conn_ctx {
  std::uint64_t handle = 0;
};

struct ifc_attribute {
  std::uint16_t number = 0;
  const std::uint32_t* value = nullptr;  // may be null
};

struct ifc_item {
  std::uint32_t handle = 0;
  std::uint32_t exists = 0;  // 0: the interface was deleted
  const char* name = nullptr;
  std::span<const ifc_attribute> attributes;
};

inline constexpr std::uint32_t ifc_bulk_code = 20;

// Lives only during the callback. A change comes as the attributes it touches; a new interface with
// all registered ones; a deleted one with the state alone, its value null; a renamed one as its old
// name deleted and its new one created.
struct ifc_bulk_notification {
  std::uint32_t code = 0;
  std::span<const ifc_item> items;
};

using ifc_callback = int (*)(evm* manager, const ifc_bulk_notification* message);

// Binds the process; `mode` is handed through. Fills `ret` only on success. Status code.
int ifc_control_server_bind(evm* manager, std::uint32_t mode, ifc_conn_ctx* ret) noexcept;
// Drops the binding; its callback is not called any more.
void ifc_control_server_unbind(ifc_conn_ctx* context) noexcept;
int ifc_conn_ctx_to_connid(const ifc_conn_ctx& context, std::uint32_t* ret) noexcept;

// Registers the client `name`; `callback` runs on the manager's loop, one notification a call.
int ifc_register_callback(ifc_conn_ctx& context, const char* name, evm* manager,
                          ifc_callback callback) noexcept;

// Registers interest in one attribute of all interfaces. Its present value is notified for every
// interface before the call returns; later changes follow. Returns an API error; `ret_status` gets
// the server's own answer for this attribute.
int ifc_attr_register(ifc_conn_ctx& context, std::uint16_t attribute, int* ret_status);

// Look-ups. Each returns an API error, and separately the status of the one item asked for; the
// result is written when both are 0. The item's status is 2 (ENOENT) for a name or a handle that
// does not exist.
int ifc_interface_find(const ifc_conn_ctx& context, const char* name, std::uint32_t* ret_handle,
                       int* ret_status) noexcept;
int ifc_interface_name(const ifc_conn_ctx& context, std::uint32_t handle, ifc_name* ret_name,
                       int* ret_status) noexcept;
int ifc_state_query(const ifc_conn_ctx& context, std::uint32_t handle, std::uint32_t flags,
                    std::uint32_t* ret_state, int* ret_status) noexcept;

// The form of an interface name that people read, cut to `size` bytes with the terminator.
void ifc_display_namestring(const char* name, char* buffer, std::size_t size,
                            std::uint32_t format) noexcept;

}  // namespace ot
