// What the interface manager keeps of a kernel link, how it reads it from the kernel's message, and
// all links as last read.
#pragma once

#include <linux/netlink.h>

#include <cstdint>
#include <span>
#include <vector>

#include "platform/fixed_text.h"

namespace ot {

struct link_record {
  std::uint32_t ifindex = 0;
  fixed_text<16> name;
  std::uint32_t state = 0;       // ifm_state_*
  std::uint32_t redundancy = 1;  // 0: a standby member of a bond
  std::uint8_t operstate = 0;    // the kernel's, from which the state is made
  bool of_vrf = false;           // a member of a VRF device
};

// The ifindex of an RTM_NEWLINK or RTM_DELLINK message. 0 when it is about something else, such as
// a bridge's view of its port.
std::uint32_t link_message_index(const nlmsghdr& message) noexcept;

// The link after an RTM_NEWLINK message; `known` is what it was before, or null. The kernel also
// sends messages that do not tell everything (wireless events): what is absent stays as it is
// known. False when the message is about something else, or does not tell enough of a link not
// known.
bool link_record_read(const nlmsghdr& message, const link_record* known, link_record* ret) noexcept;

// The links of the system as last read, by ifindex and by name: a sorted run of small records. A
// thousand links are 40 kB, a dump is entered without a search, and a look-up by name is rare
// enough to go through all.
class link_cache {
 public:
  // The record or null; valid until the next change.
  [[nodiscard]] const link_record* find(std::uint32_t ifindex) const noexcept;
  [[nodiscard]] const link_record* find(const char* name) const noexcept;

  // Enters or replaces a link. 0 or 12.
  int put(const link_record& link) noexcept;
  void erase(std::uint32_t ifindex) noexcept;
  void clear() noexcept { links_.clear(); }

  // All links in the order of their ifindex.
  [[nodiscard]] std::span<const link_record> all() const noexcept { return links_; }

 private:
  std::vector<link_record> links_;  // sorted; a kernel dump comes in this order too
};

}  // namespace ot
