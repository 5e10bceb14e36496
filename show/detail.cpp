// The detailed view of tracks. Every type of track has a row with the function that prints its
// lines; what the lines have in common (state, change line) is printed by one function each.

#include <array>
#include <cstdio>
#include <ctime>

#include "core/in_addr_text.h"
#include "platform/probe_service.h"
#include "show/display.h"
#include "show/display_parts.h"

namespace ot {
namespace {

// A record under way: what is printed of it at several places.
struct printed_track {
  const track_info__& record;
  const char* what;  // whose state the track has
  char suffix[64];   // ends every line that tells the state
};

enum class then { go_on, end_of_record };

void print_state(const printed_track& track, bool up) {
  std::printf("\t%s is %s %s", track.what, up ? "UP" : "DOWN", track.suffix);
}

void print_changes(const track_info__& record) {
  static char text[1024];
  const auto seconds = static_cast<std::time_t>(record.SecondsLastChange);
  std::tm local{};
  if (localtime_r(&seconds, &local) == nullptr) {
    return;
  }
  if (std::strftime(text, sizeof text, "%T %Z %a %b %d %Y", &local) == 0) {
    return;
  }
  const char* noun = record.StateChangeCounter == 1 ? "change" : "changes";
  std::printf("\t%d %s, last change %s\n", static_cast<int>(record.StateChangeCounter), noun, text);
}

then print_interface(const printed_track& track) {
  const track_info__& record = track.record;
  std::printf("\tInterface %s line-protocol\n",
              display_name(record.TrackTypeInfo.InterfaceTracks.InterfaceName).c_str());
  print_state(track, record.TrackState);
  print_changes(record);
  return then::go_on;
}

then print_route(const printed_track& track) {
  const track_info__& record = track.record;
  const route_track_info__& route = record.TrackTypeInfo.RouteTracks;
  if (route.Prefix == 0) {
    return then::go_on;
  }
  std::printf("\tIp route %s %s reachability ip vrf %s\n", in_addr_s(route.Prefix),
              in_addr_s(route.PrefixLength), route.VRF.c_str());
  print_state(track, record.TrackState);
  if (record.TrackState) {
    std::printf("\tFirst Hop interface %s\n", route.NextHop.c_str());
  }
  print_changes(record);
  return then::go_on;
}

// The reachability of a probe is told from its return code, not from the track's state.
then print_probe(const printed_track& track) {
  constexpr std::uint32_t not_running = 0;
  constexpr std::uint32_t succeeded = 1;
  constexpr std::uint32_t timed_out = 2;
  const prb_track_info__& probe = track.record.TrackTypeInfo.QmonTracks;
  std::printf("\tProbe Monitor %d reachability \n", static_cast<int>(probe.QmonOpId));
  if (probe.ReturnCode == not_running) {
    std::printf("\tqmon operation not in progress \n");
    return then::end_of_record;
  }
  if (probe.ReturnCode <= timed_out) {
    print_state(track, probe.ReturnCode == succeeded);
  }
  print_changes(track.record);
  std::printf("\tLatest operation return code: %s \n", qmon_retCodeToStr(probe.ReturnCode));
  std::printf("\tLatest RTT (millisecs) : %u \n", probe.RTT);
  return then::go_on;
}

then print_bfd(const printed_track& track) {
  const track_info__& record = track.record;
  const bfdprb_track_info__& bfd = record.TrackTypeInfo.BFDTracks;
  std::printf("\tInterface %s Destination Address %s\n", display_name(bfd.InterfaceName).c_str(),
              in_addr_s(bfd.DestinationAddress));
  print_state(track, record.TrackState);
  print_changes(record);
  return then::go_on;
}

const char* negation(const bool_track_info__& member) noexcept {
  return member.WithNot ? "not " : "";
}
const char* negation(const threshold_track_info__&) noexcept {
  return "";
}

template <typename Member>
then print_list(const printed_track& track, const Member* members) {
  print_state(track, track.record.TrackState);
  print_changes(track.record);
  for (; members != nullptr; members = members->next) {
    std::printf("\t\tobject %s %s%s\n", members->ObjectName.c_str(), negation(*members),
                members->TrackState ? "UP" : "DOWN");
  }
  return then::go_on;
}

then print_boolean(const printed_track& track) {
  return print_list(track, track.record.BoolTracks);
}
then print_threshold(const printed_track& track) {
  return print_list(track, track.record.ThresholdTracks);
}

struct detail_row {
  track_type type;
  const char* what;
  then (*print)(const printed_track& track);
};
constexpr std::array detail_rows = {
    detail_row{track_type::interface, "Line protocol", print_interface},
    detail_row{track_type::route, "Reachability", print_route},
    detail_row{track_type::boolean_and, "List boolean and", print_boolean},
    detail_row{track_type::boolean_or, "List boolean or", print_boolean},
    detail_row{track_type::probe, "Reachability", print_probe},
    detail_row{track_type::threshold_weight, "List threshold weight", print_threshold},
    detail_row{track_type::threshold_percentage, "List threshold percentage", print_threshold},
    detail_row{track_type::bfd, "BFD Reachability", print_bfd},
};

then print_type(printed_track& track) {
  const track_type type = shown_type(track.record);
  for (const detail_row& row : detail_rows) {
    if (row.type == type) {
      track.what = row.what;
      return row.print(track);
    }
  }
  return then::go_on;
}

void print_trackers(const interface_tracking_info__* interfaces) {
  if (interfaces != nullptr) {
    std::printf("\tTracked by:\n");
  }
  for (; interfaces != nullptr; interfaces = interfaces->next) {
    std::printf("\t\t%s\n", interfaces->InterfaceName.c_str());
  }
}

}  // namespace

void ot_display_track_info(const track_info__* records) {
  for (; records != nullptr; records = records->next) {
    std::printf("\nTrack %s \n", records->TrackeName.c_str());
    printed_track track{*records, "", "\n"};
    if (const delayed_state_status__* delayed = records->Delayed; delayed != nullptr) {
      std::snprintf(track.suffix, sizeof track.suffix, ", delayed %s (%d secs remaining)\n",
                    delayed->TrackState ? "Up" : "Down", static_cast<int>(delayed->TimeRemaining));
    }
    if (print_type(track) == then::go_on) {
      print_trackers(records->TrackingInteraces);
    }
  }
}

}  // namespace ot
