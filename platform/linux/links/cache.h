// The links of the system as last read, by ifindex and by name.
#pragma once

#include <span>
#include <vector>

#include "platform/linux/links/record.h"

namespace ot {

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
