// The addresses of this machine's interfaces, and which of them a session is to speak from.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "platform/linux/bfd/engine.h"

namespace ot::bfd::vty {

// IPv4, network byte order.
struct interface_address {
  interface_name interface;
  std::uint32_t address = 0;
  std::uint32_t mask = 0;
  std::uint32_t peer = 0;  // the other end's, on a link between two; else no neighbor's
};

// As they are now, those of an interface together; unchanged when the kernel does not tell. Throws
// bad_alloc.
void look_at_addresses(std::vector<interface_address>* ret);

// What the session is to speak from, given all addresses: what it asks for; or else an address of
// the interface in the destination's subnet, or its first one where there is none. `present` is
// kept as long as it is as good as another, and when the interface has no address at all. 0: none.
std::uint32_t choose_address(std::span<const interface_address> addresses,
                             const session_config& session, std::uint32_t present) noexcept;

}  // namespace ot::bfd::vty
