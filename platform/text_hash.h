// A number that stands for a text, the same in every run (FNV-1a): to know something again by, not
// to keep secrets.
#pragma once

#include <cstdint>
#include <string_view>

namespace ot {

constexpr std::uint32_t text_hash(std::string_view text) noexcept {
  std::uint32_t hash = 2166136261U;
  for (const char letter : text) {
    hash = (hash ^ static_cast<unsigned char>(letter)) * 16777619U;
  }
  return hash;
}

}  // namespace ot
