// The form of an interface name for people. Names of this router are for people already.
#include <algorithm>
#include <cstring>

#include "platform/interface_manager.h"

namespace ot {

void ifc_display_namestring(const char* name, char* buffer, std::size_t size,
                            std::uint32_t /*format*/) noexcept {
  if (size == 0) {
    return;
  }
  const std::size_t length = std::min(std::strlen(name), size - 1);
  std::memcpy(buffer, name, length);
  buffer[length] = '\0';
}

}  // namespace ot
