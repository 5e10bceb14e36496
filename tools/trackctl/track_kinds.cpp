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
    // Changes of a VRF are not seen when the names begin alike, so the track is made anew.
    track_kind{.word = "route",
               .folder = "type/route/0x2/",
               .summary = "the reachability of an IPv4 route of exactly this length",
               .arguments = "PREFIX/LEN [--vrf VRF]",
               .example = "customers route 192.0.2.0/24 --vrf red",
               .recreate_on_change = true,
               .define = define_route_kind},
    // An operation's number cannot change in place: the service holds it against the track's type.
    track_kind{.word = "probe",
               .folder = "type/prb/0x5/",
               .summary = "the results of an operation of the probe service",
               .arguments = "OPERATION",
               .example = "website probe 7 --delay-down 10",
               .recreate_on_change = true,
               .define = define_probe_kind},
    // The service makes such a track only where none is, and looks at nothing but the address.
    track_kind{.word = "bfd",
               .folder = "type/bfdprb/0x9/",
               .summary = "a BFD session with a router at the other end of an interface",
               .arguments = "ADDRESS --interface IF [--rate MS] [--debounce N]",
               .example = "peer bfd 192.0.2.1 --interface eth0 --rate 50 --debounce 3",
               .recreate_on_change = true,
               .define = define_bfd_kind,
               .only_from_nothing = true},
    track_kind{.word = "and",
               .folder = "type/list/0x3/",
               .summary = "other tracks, up when all of them are",
               .arguments = "[not] MEMBER ...",
               .example = "site and uplink not maintenance --delay-up 5",
               .recreate_on_change = false,
               .define = define_and_kind},
    track_kind{.word = "or",
               .folder = "type/list/0x4/",
               .summary = "other tracks, up when one of them is",
               .arguments = "[not] MEMBER ...",
               .example = "anyway or uplink backup",
               .recreate_on_change = false,
               .define = define_or_kind},
    track_kind{.word = "weight",
               .folder = "type/list/0x7/",
               .summary = "the sum of weights of the tracks that are up, itself up from the down "
                          "limit to the up limit",
               .arguments = "--up N --down N MEMBER=WEIGHT ...",
               .example = "capacity weight --up 100 --down 30 fibre=70 dsl=20 radio=10",
               .recreate_on_change = false,
               .define = define_weight_kind},
    track_kind{.word = "percentage",
               .folder = "type/list/0x8/",
               .summary = "the percentage of tracks that are up, itself up from the down limit to "
                          "the up limit",
               .arguments = "--up N --down N MEMBER ...",
               .example = "most percentage --up 100 --down 51 dc1 dc2 dc3",
               .recreate_on_change = false,
               .define = define_percentage_kind},
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
