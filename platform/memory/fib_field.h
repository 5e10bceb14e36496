// The routes of the in-memory router and the clients that registered for some of them. For the
// files of this folder.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/fib_client.h"

namespace ot {

// Host byte order inside, so that prefixes order and compare as numbers.
struct field_prefix {
  std::uint32_t table = 0;
  std::uint32_t address = 0;
  std::uint32_t length = 0;

  friend auto operator<=>(const field_prefix&, const field_prefix&) = default;
  // Whether one of the two contains the other.
  [[nodiscard]] bool overlaps(const field_prefix& other) const noexcept;
  [[nodiscard]] bool contains(std::uint32_t host) const noexcept;
};

struct fib_part {
  bool running = true;
  std::map<field_prefix, std::string> routes;  // with the first hop
  std::vector<std::unique_ptr<rtclient>> clients;
};

}  // namespace ot
