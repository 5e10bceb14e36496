// Addresses for keys, traces and messages, in a small ring of buffers.

#include "core/in_addr_text.h"

#include <cstdio>
#include <cstring>

namespace ot {

const char* in_addr_s(std::uint32_t address) noexcept {
  constexpr unsigned ring_size = 4;
  thread_local char ring[ring_size][16];
  thread_local unsigned next = 0;
  char* text = ring[next++ % ring_size];
  unsigned char octets[4];
  std::memcpy(octets, &address, sizeof octets);
  std::snprintf(text, sizeof ring[0], "%u.%u.%u.%u", octets[0], octets[1], octets[2], octets[3]);
  return text;
}

}  // namespace ot
