// The one list of all kinds of tracks. A new kind is a row in its own folder, and its name twice
// here.

#include <array>

#include "core/track_kind.h"

namespace ot {

extern const track_kind boolean_kind;
extern const track_kind threshold_kind;
extern const track_kind interface_kind;
extern const track_kind route_kind;
extern const track_kind probe_kind;
extern const track_kind bfd_kind;

std::span<const track_kind* const> track_kinds() noexcept {
  static constexpr std::array kinds = {&boolean_kind, &threshold_kind, &interface_kind,
                                       &route_kind,   &probe_kind,     &bfd_kind};
  return kinds;
}

}  // namespace ot
