// The table of track kinds, in the order in which the help lists them.
#include <algorithm>
#include <array>

#include "tools/trackctl/track_kind.h"

namespace ot::trackctl {
namespace {

constexpr std::array kinds{
    track_kind{.word = "interface",
               .folder = "type/interface/0x1/",
               .summary = "the line protocol of an interface",
               .arguments = "IFNAME",
               .example = "uplink interface eth0 --delay-up 5",
               .recreate_on_change = false,
               .define = define_interface_kind},
};

}  // namespace

std::span<const track_kind> track_kinds() noexcept {
  return kinds;
}

const track_kind* find_track_kind(std::string_view word) noexcept {
  const auto* const found = std::find_if(
      kinds.begin(), kinds.end(), [word](const track_kind& kind) { return kind.word == word; });
  return found == kinds.end() ? nullptr : found;
}

}  // namespace ot::trackctl
