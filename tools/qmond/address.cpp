// Socket addresses of both families.
#include "tools/qmond/address.h"

#include <arpa/inet.h>

#include <array>
#include <cstring>

namespace ot::qmond {

address address::from_text(const std::string& text, std::uint16_t port) noexcept {
  address made;
  if (inet_pton(AF_INET, text.c_str(), &made.storage_.v4.sin_addr) == 1) {
    made.storage_.v4.sin_family = AF_INET;
    made.storage_.v4.sin_port = htons(port);
  } else if (inet_pton(AF_INET6, text.c_str(), &made.storage_.v6.sin6_addr) == 1) {
    made.storage_.v6.sin6_family = AF_INET6;
    made.storage_.v6.sin6_port = htons(port);
  }
  return made;
}

address address::from_socket(const sockaddr* found, std::uint16_t port) noexcept {
  address made;
  if (found->sa_family == AF_INET) {
    std::memcpy(&made.storage_.v4, found, sizeof made.storage_.v4);
    made.storage_.v4.sin_port = htons(port);
  } else if (found->sa_family == AF_INET6) {
    std::memcpy(&made.storage_.v6, found, sizeof made.storage_.v6);
    made.storage_.v6.sin6_port = htons(port);
  }
  return made;
}

socklen_t address::size() const noexcept {
  return family() == AF_INET ? sizeof storage_.v4 : sizeof storage_.v6;
}

std::string address::text() const {
  std::array<char, INET6_ADDRSTRLEN> text{};
  const void* const bytes =
      family() == AF_INET ? static_cast<const void*>(&v4()) : static_cast<const void*>(&v6());
  return set() && inet_ntop(family(), bytes, text.data(), text.size()) != nullptr ? text.data()
                                                                                  : "";
}

bool address::same_host(const address& other) const noexcept {
  if (family() != other.family()) {
    return false;
  }
  return family() == AF_INET ? v4().s_addr == other.v4().s_addr
                             : std::memcmp(&v6(), &other.v6(), sizeof(in6_addr)) == 0;
}

}  // namespace ot::qmond
