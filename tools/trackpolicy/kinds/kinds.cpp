// The list of all kinds.
#include "tools/trackpolicy/kinds/kinds.h"

#include <array>

#include "tools/settings/kinds.h"

namespace ot::trackpolicy {
namespace {

constexpr std::array<std::reference_wrapper<const kind>, 5> kinds{command_kind, file_kind,
                                                                  route_kind, link_kind, frr_kind};

}  // namespace

std::span<const std::reference_wrapper<const kind>> all_kinds() noexcept {
  return kinds;
}

const kind& kind_of(kind_id id) noexcept {
  return settings::kind_of(all_kinds(), id);
}

}  // namespace ot::trackpolicy
