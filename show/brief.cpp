// The table of tracks: one row for each type says what stands in the columns. Texts are cut to
// their column, so that the table stays one on any terminal.

#include <array>
#include <cstdio>

#include "core/in_addr_text.h"
#include "platform/ipv4.h"
#include "show/display.h"
#include "show/display_parts.h"

namespace ot {
namespace {

using object_column = fixed_text<128>;

object_column formatted_list(const track_info_brief__&) {
  return object_column("list");
}

object_column formatted_interface(const track_info_brief__& record) {
  char text[object_column::capacity];
  std::snprintf(text, sizeof text, "interface %-32.31s",
                display_name(record.TrackTypeInfo.InterfaceTracks.InterfaceName).c_str());
  return object_column(text);
}

object_column formatted_route(const track_info_brief__& record) {
  const route_track_info__& route = record.TrackTypeInfo.RouteTracks;
  if (route.Prefix == 0) {
    return object_column();
  }
  char destination[160];
  std::snprintf(destination, sizeof destination, "%s/%d vrf %s", in_addr_s(route.Prefix),
                static_cast<int>(ipv4_mask2prefixlen(route.PrefixLength)), route.VRF.c_str());
  char text[object_column::capacity];
  std::snprintf(text, sizeof text, "ip route %-33.32s", destination);
  return object_column(text);
}

object_column formatted_probe(const track_info_brief__& record) {
  char text[object_column::capacity];
  std::snprintf(text, sizeof text, "QMON Operation %d ",
                static_cast<int>(record.TrackTypeInfo.QmonTracks.QmonOpId));
  return object_column(text);
}

object_column formatted_bfd(const track_info_brief__&) {
  return object_column("BFD Session");
}

object_column formatted_none(const track_info_brief__&) {
  return object_column("No Track Type Configured ");
}

struct brief_row {
  track_type type;
  object_column (*object)(const track_info_brief__& record);
  const char* parameter;
};
constexpr std::array brief_rows = {
    brief_row{track_type::interface, formatted_interface, "line protocol"},
    brief_row{track_type::route, formatted_route, "reachability"},
    brief_row{track_type::boolean_and, formatted_list, "boolean and"},
    brief_row{track_type::boolean_or, formatted_list, "boolean or"},
    brief_row{track_type::probe, formatted_probe, "reachability"},
    brief_row{track_type::threshold_weight, formatted_list, "threshold weight"},
    brief_row{track_type::threshold_percentage, formatted_list, "threshold percentage"},
    brief_row{track_type::bfd, formatted_bfd, "reachability"},
};
constexpr brief_row other_row = {track_type::none, formatted_none, "---"};

const brief_row& row_of(track_type type) noexcept {
  for (const brief_row& row : brief_rows) {
    if (row.type == type) {
      return row;
    }
  }
  return other_row;
}

}  // namespace

void ot_display_track_info_brief(const track_info_brief__* records) {
  std::fputs(
      "Track                            Object                                    Parameter"
      "        Value                \n"
      "-----------------------------------------------------------"
      "---------------------------------------------\n",
      stdout);
  for (; records != nullptr; records = records->next) {
    const brief_row& row = row_of(shown_type(*records));
    std::printf("%-33.32s%-42.41s%-17.16s%-5.4s\n", records->TrackeName.c_str(),
                row.object(*records).c_str(), row.parameter, records->TrackState ? "Up" : "Down");
  }
}

}  // namespace ot
