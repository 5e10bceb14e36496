// Sockets that leave through the interface or VRF and from the source address of an operation.
#pragma once

#include "platform/linux/unique_fd.h"
#include "tools/qmond/address.h"
#include "tools/qmond/operation.h"

namespace ot::qmond {

// 0 or an errno value.
int bind_to_operation(int fd, int family, const operation& what) noexcept;

// A non-blocking socket of that type (SOCK_STREAM, SOCK_DGRAM), bound and with its connection begun
// or, where there is none to make, set. 0 or an errno value.
int connect_socket(int type, const operation& what, const address& where, unique_fd* ret) noexcept;

}  // namespace ot::qmond
