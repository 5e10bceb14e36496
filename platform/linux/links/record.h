// What the interface manager keeps of a kernel link, and how it reads it from the kernel's message.
#pragma once

#include <linux/netlink.h>

#include <cstdint>

#include "platform/fixed_text.h"

namespace ot {

struct link_record {
  std::uint32_t ifindex = 0;
  fixed_text<16> name;
  std::uint32_t state = 0;       // ifm_state_*
  std::uint32_t redundancy = 1;  // 0: a standby member of a bond
};

// Reads an RTM_NEWLINK or RTM_DELLINK message. False when it is about something else, such as a
// bridge's view of its port.
bool link_record_read(const nlmsghdr& message, link_record* ret) noexcept;

}  // namespace ot
