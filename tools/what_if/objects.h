// The objects in memory that the tracks of a simulation follow.
#pragma once

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "core/track.h"

namespace ot::what_if {

// The router of one simulation. Main thread.
class router {
 public:
  // A fresh one, with what has to be there before the service starts: the engine of BFD, and the
  // interfaces of sessions, which stand in the configuration's paths.
  explicit router(const std::vector<std::string>& paths);

  // Brings what the track follows into the state in which its source is `state`: makes it, changes
  // it, or ends it. The track hears of it when its loop runs, or when it is polled. Nothing for
  // lists and for tracks without a type.
  void bring(const ot_track& track, track_state state);

 private:
  friend struct object_row;

  void bring_interface(const ot_track& track, track_state state);
  void bring_route(const ot_track& track, track_state state);
  void bring_operation(const ot_track& track, track_state state);
  void bring_session(const ot_track& track, track_state state);
  std::uint32_t table_of(std::string_view vrf);

  std::set<std::string, std::less<>> interfaces_;
  std::vector<std::string> vrfs_;  // the first with the first table
};

// What the service looks at every two seconds it looks at now, and no more by itself.
void poll_once(ot_track& track);
void poll_no_more(ot_track& track);

}  // namespace ot::what_if
