// What a bounded printf left in its buffer.
#pragma once

#include <algorithm>
#include <cstddef>

namespace ot {

// The number of characters in a buffer of `size` bytes after snprintf returned `formatted`.
constexpr std::size_t formatted_length(int formatted, std::size_t size) noexcept {
  return formatted < 0 ? 0 : std::min(static_cast<std::size_t>(formatted), size - 1);
}

}  // namespace ot
