// Builds the JSON of a track from its detailed operational record. Lists are walked by their links,
// objects are chosen from a table by the track's type.
#include "tools/trackctl/track_json.h"

#include <arpa/inet.h>

#include <array>

namespace ot::trackctl {
namespace {

using json = nlohmann::ordered_json;

std::string text(const auto& field) {
  return std::string(field.view());
}

std::string dotted(std::uint32_t network_order) {
  std::array<char, INET_ADDRSTRLEN> buffer{};
  (void)inet_ntop(AF_INET, &network_order, buffer.data(), buffer.size());
  return buffer.data();
}

const char* up_or_down(bool up) {
  return up ? "up" : "down";
}

json interface_json(const track_type_info& info) {
  return {{"interface", text(info.InterfaceTracks.InterfaceName)}};
}

json route_json(const track_type_info& info) {
  const route_track_info__& route = info.RouteTracks;
  return {{"prefix", dotted(route.Prefix)},
          {"mask", dotted(route.PrefixLength)},
          {"vrf", text(route.VRF)},
          {"next_hop", route.NextHop.empty() ? json(nullptr) : json(text(route.NextHop))}};
}

json probe_json(const track_type_info& info) {
  const prb_track_info__& probe = info.QmonTracks;
  return {{"operation", probe.QmonOpId}, {"return_code", probe.ReturnCode}, {"rtt_ms", probe.RTT}};
}

json bfd_json(const track_type_info& info) {
  const bfdprb_track_info__& bfd = info.BFDTracks;
  return {{"interface", text(bfd.InterfaceName)},
          {"destination", dotted(bfd.DestinationAddress)},
          {"rate", bfd.Rate},
          {"debounce", bfd.DebounceCount}};
}

struct type_row {
  track_type type;
  const char* word;
  json (*object)(const track_type_info& info);  // null: follows no object of its own
};

constexpr std::array type_rows{
    type_row{track_type::interface, "interface", interface_json},
    type_row{track_type::route, "route", route_json},
    type_row{track_type::boolean_and, "and", nullptr},
    type_row{track_type::boolean_or, "or", nullptr},
    type_row{track_type::probe, "probe", probe_json},
    type_row{track_type::none, "none", nullptr},
    type_row{track_type::threshold_weight, "weight", nullptr},
    type_row{track_type::threshold_percentage, "percentage", nullptr},
    type_row{track_type::bfd, "bfd", bfd_json},
};

const type_row& row_of(track_type type) {
  static constexpr type_row no_type{track_type::none, "none", nullptr};
  for (const type_row& row : type_rows) {
    if (row.type == type) {
      return row;
    }
  }
  return no_type;
}

const char* state_word(const track_info__& record, bool published) {
  if (record.TrackState) {
    return "up";
  }
  return published && !awaits_probe_result(record) ? "down" : "unknown";
}

json pending_json(const delayed_state_status__* delayed) {
  if (delayed == nullptr) {
    return nullptr;
  }
  return {{"state", up_or_down(delayed->TrackState)}, {"seconds", delayed->TimeRemaining}};
}

json members_json(const track_info__& record) {
  json members = json::array();
  for (const auto* member = record.BoolTracks; member != nullptr; member = member->next) {
    members.push_back({{"name", text(member->ObjectName)},
                       {"state", up_or_down(member->TrackState)},
                       {"not", member->WithNot}});
  }
  for (const auto* member = record.ThresholdTracks; member != nullptr; member = member->next) {
    members.push_back({{"name", text(member->ObjectName)},
                       {"state", up_or_down(member->TrackState)},
                       {"weight", member->Weight}});
  }
  return members;
}

json limits_json(const track_info__& record) {
  if (record.ThresholdUp == nullptr || record.ThresholdDown == nullptr) {
    return nullptr;
  }
  return {{"up", *record.ThresholdUp}, {"down", *record.ThresholdDown}};
}

json tracked_by_json(const track_info__& record) {
  json names = json::array();
  for (const auto* each = record.TrackingInteraces; each != nullptr; each = each->next) {
    names.push_back(text(each->InterfaceName));
  }
  return names;
}

}  // namespace

bool awaits_probe_result(const track_info__& record) noexcept {
  return record.Type == track_type::probe && !record.TrackState &&
         record.TrackTypeInfo.QmonTracks.ReturnCode == 0;
}

json track_to_json(const track_info__& record, const track_extras& extras) {
  const type_row& type = row_of(record.Type);
  return {{"name", text(record.TrackeName)},
          {"type", type.word},
          {"state", state_word(record, extras.published)},
          {"changes", record.StateChangeCounter},
          {"last_change", extras.published ? json(record.SecondsLastChange) : json(nullptr)},
          {"delay_up", extras.delay_up},
          {"delay_down", extras.delay_down},
          {"pending", pending_json(record.Delayed)},
          {"object", type.object != nullptr ? type.object(record.TrackTypeInfo) : json(nullptr)},
          {"members", members_json(record)},
          {"limits", limits_json(record)},
          {"tracked_by", tracked_by_json(record)}};
}

void flag_missing_members(json& track,
                          const std::function<bool(std::string_view name)>& is_configured) {
  for (json& member : track["members"]) {
    member["missing"] = !is_configured(member["name"].get_ref<const std::string&>());
  }
}

}  // namespace ot::trackctl
