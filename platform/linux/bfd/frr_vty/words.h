// The words by which FRR tells of a session, in its lists and in its log. Pure.
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/linux/bfd/engine.h"

namespace ot::bfd::vty {

// A state by its name in the protocol; false, and `ret` unchanged, for one that is none.
bool state_of(std::string_view word, std::uint8_t* ret) noexcept;

// A diagnostic by its number in the protocol; FRR has other words for it in its log than in its
// lists. Those that it has no words for, as well as ours for them, are 0.
std::uint8_t diagnostic_of(std::string_view words) noexcept;
std::uint8_t logged_diagnostic_of(std::string_view word) noexcept;

// An IPv4 address in network byte order; 0 when the text is none.
std::uint32_t address_of(std::string_view text) noexcept;

}  // namespace ot::bfd::vty
