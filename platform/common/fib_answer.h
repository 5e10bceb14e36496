// What a look-up of a prefix is about, and what it brings.
#pragma once

#include <algorithm>
#include <array>
#include <compare>
#include <cstdint>

#include "platform/fib_client.h"

namespace ot {

// The address in network byte order.
struct fib_prefix {
  std::uint32_t table = 0;
  std::uint32_t address = 0;
  std::uint32_t length = 0;

  friend auto operator<=>(const fib_prefix&, const fib_prefix&) = default;
};

// The links that a look-up's answer depends on, by ifindex, as far as the answer tells.
class route_links {
 public:
  // 0 stands for one that is not known.
  void add(std::uint32_t link) noexcept {
    const auto place = std::find(links_.begin(), links_.end(), 0U);
    any_ = any_ || link == 0 || place == links_.end();
    if (!any_) {
      *place = link;
    }
  }
  [[nodiscard]] bool may_have(std::uint32_t link) const noexcept {
    return any_ || std::find(links_.begin(), links_.end(), link) != links_.end();
  }

 private:
  std::array<std::uint32_t, 3> links_{};
  bool any_ = false;
};

struct fib_answer {
  rtclient_result result;
  route_links links;
};

}  // namespace ot
