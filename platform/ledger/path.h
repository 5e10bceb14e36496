// The rules of ledger paths.
#pragma once

#include <cstddef>
#include <string_view>

namespace ot {

inline constexpr std::size_t ledger_path_max = 480;  // bytes, below what a store takes as a key

// An item's path: absolute, not too long, every element non-empty and without control characters.
[[nodiscard]] bool ledger_item_path_valid(std::string_view path) noexcept;

// A path that others stand below: the same with a '/' at the end; "/" is one.
[[nodiscard]] bool ledger_base_path_valid(std::string_view path) noexcept;

// Whether the path belongs to the configuration, which only a commit changes.
[[nodiscard]] bool ledger_path_is_configuration(std::string_view path) noexcept;

// Takes the first element off `path` and returns it.
std::string_view ledger_next_element(std::string_view& path) noexcept;

}  // namespace ot
