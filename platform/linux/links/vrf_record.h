// A VRF device as the kernel's messages describe it.
#pragma once

#include <linux/netlink.h>

#include <cstdint>

#include "platform/vrf_service.h"

namespace ot {

// Table ids of VRF devices begin above all numbers that tables of the kernel usually have.
inline constexpr std::uint32_t first_own_table_id = 0x80000000;

struct vrf_device {
  vrf_text name;
  std::uint32_t id = 0;     // ifindex
  std::uint32_t table = 0;  // the kernel's number
  // The FIB's id of the table: the number 254 for the default VRF, for a device one that nothing
  // had before. Devices may share a table of the kernel, and one may come back as another VRF or
  // with another table; each is looked up and notified by itself.
  std::uint32_t table_id = 0;
};

// Reads a message about any link; false for another one. What the message does not tell is left
// empty: the name, or the table, which only VRF devices have. The table id is not of the kernel.
bool vrf_device_read(const nlmsghdr& message, vrf_device* ret) noexcept;

}  // namespace ot
