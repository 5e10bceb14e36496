// The restart flag.

#include "core/restart.h"

namespace ot {
namespace {

std::uint32_t ot_restart = 0;

}  // namespace

void ot_set_restart(std::uint32_t start_count) noexcept {
  ot_restart = start_count >= 2 ? 1 : 0;
}

std::uint32_t ot_is_restart() noexcept {
  return ot_restart;
}

}  // namespace ot
