// The rules of what enters the ledger, whatever the tree below: an item's path can always be a
// store's key, a line of a log and a C string; its value is what its kind says.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>

#include "platform/ledger.h"

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

inline constexpr std::size_t ledger_value_max = 4096;  // bytes of a text or a tuple

// What one operational item takes at most, so that none of them takes the others' room.
inline constexpr std::size_t ledger_operational_path_max = 128;
inline constexpr std::size_t ledger_operational_value_max = 256;

// Null when the bytes are a good value of the kind, else what is wrong with them.
[[nodiscard]] const char* ledger_value_fault(ledger_kind kind,
                                             std::span<const std::byte> bytes) noexcept;

}  // namespace ot
