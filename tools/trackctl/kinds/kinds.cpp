// The list of all kinds.
#include "tools/trackctl/kinds/kinds.h"

#include <algorithm>
#include <array>

namespace ot::trackctl {
namespace {

constexpr std::array<std::reference_wrapper<const track_kind>, 8> kinds{
    interface_kind, route_kind, probe_kind,  bfd_kind,
    and_kind,       or_kind,    weight_kind, percentage_kind};

template <typename Matches>
const track_kind* find(Matches matches) noexcept {
  const auto* const found = std::find_if(kinds.begin(), kinds.end(), matches);
  return found == kinds.end() ? nullptr : &found->get();
}

}  // namespace

std::span<const std::reference_wrapper<const track_kind>> track_kinds() noexcept {
  return kinds;
}

const track_kind* find_track_kind(std::string_view word) noexcept {
  return find([word](const track_kind& kind) { return kind.word == word; });
}

const track_kind* find_track_kind(track_type type) noexcept {
  return find([type](const track_kind& kind) { return kind.type == type; });
}

}  // namespace ot::trackctl
