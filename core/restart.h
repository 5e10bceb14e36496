// The restart flag: whether this process follows an earlier one of the same boot. If so, a track
// that is created takes over the state last published for it.
#pragma once

#include <cstdint>

namespace ot {

// Called once at start-up with the process's start count (1 for the first start).
void ot_set_restart(std::uint32_t start_count) noexcept;

// 1 after the second or a later start, else 0.
std::uint32_t ot_is_restart() noexcept;

}  // namespace ot
