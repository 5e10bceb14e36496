// What tracks stand on: an interface is followed directly, through a member of a list, as the way
// out of a route, or by a probe or a BFD session that is bound to it. Setting such an interface
// down would hold its track down for ever.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "oper/records/track_records.h"

namespace ot::trackpolicy {

// The interfaces that probes are bound to, by the number of the operation; those of the probe
// service's configuration, as far as it can be read.
using probe_interfaces = std::map<std::uint32_t, std::string>;
probe_interfaces read_probe_interfaces();

class foundations {
 public:
  // Takes a track's record in.
  void note(const track_info__& record, const probe_interfaces& probes);
  // A route that is gone has no way out: that of `before` still counts.
  void keep_routes_of(const foundations& before);

  // Whether the track was among those that were read.
  [[nodiscard]] bool know(const std::string& track) const { return tracks_.contains(track); }
  // The interfaces below a track, with the words for how: "wan follows". An interface's own
  // foundations (what a VLAN lies on) are not known here.
  [[nodiscard]] std::map<std::string, std::string> below(const std::string& track) const;

 private:
  struct ground {
    std::vector<std::string> members;
    std::string interface;
    const char* how = "";
    bool route = false;
  };
  std::map<std::string, ground, std::less<>> tracks_;
};

}  // namespace ot::trackpolicy
