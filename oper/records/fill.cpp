// What a record says of a track. Both kinds of record begin with the same fields; what a track
// follows and what a list adds to the detailed one stand in a row for each track type.

#include "oper/records/fill.h"

#include <array>

#include "core/debug.h"
#include "core/in_addr_text.h"
#include "oper/records/tracking_interfaces.h"
#include "platform/status.h"
#include "sources/route/fib_connection.h"
#include "sources/route/vrf_connection.h"
#include "state/timers.h"

namespace ot {
namespace {

// --- What the track follows --------------------------------------------------------------------

void fill_interface(const ot_track& track, track_type_info& info) noexcept {
  info.InterfaceTracks.InterfaceName.assign(track.object.interface.name.view());
}

// The egress interface, for a route that is reachable.
void fill_next_hop(const route_object& route, route_track_info__& info) noexcept {
  fib_result result;
  const std::uint32_t vrf_id = ot_vmap_vrf_name_2_vrf_id(route.vrf.c_str());
  const int status = ot_fec_lookup(route.prefix, vrf_id, result.out());
  if (status != status_ok) {
    OT_TRACE_ERROR("(%s) : ot_fec_lookup for ip %s vrf %s failed - %s", "ot_fill_track_info",
                   in_addr_s(route.prefix), route.vrf.c_str(), err_string(status));
  } else if (result.get() != nullptr) {
    info.NextHop.assign(result.get()->first_hop.view());
  }
}

void fill_route(const ot_track& track, track_type_info& info) noexcept {
  const route_object& route = track.object.route;
  info.RouteTracks.Prefix = route.prefix;
  info.RouteTracks.PrefixLength = route.mask;  // readers take it as the mask it is
  info.RouteTracks.VRF.assign(route.vrf.view());
  if (track.source_state == track_state::up) {
    fill_next_hop(route, info.RouteTracks);
  }
}

void fill_probe(const ot_track& track, track_type_info& info) noexcept {
  const probe_object& probe = track.object.probe;
  if (probe.operation_id == 0) {
    return;
  }
  constexpr std::uint32_t succeeded = 1;
  info.QmonTracks.QmonOpId = probe.operation_id;
  info.QmonTracks.RTT = probe.return_code == succeeded ? probe.response_time : 0;
  info.QmonTracks.ReturnCode = probe.return_code;
}

void fill_bfd(const ot_track& track, track_type_info& info) noexcept {
  const bfd_object& bfd = track.object.bfd;
  info.BFDTracks.InterfaceName.assign(bfd.interface.view());
  info.BFDTracks.DestinationAddress = bfd.destination;
  info.BFDTracks.Rate = bfd.rate;
  info.BFDTracks.DebounceCount = bfd.debounce_count;
}

struct object_row {
  track_type type;
  void (*fill)(const ot_track& track, track_type_info& info) noexcept;
};
constexpr std::array object_rows = {
    object_row{track_type::interface, fill_interface},
    object_row{track_type::route, fill_route},
    object_row{track_type::probe, fill_probe},
    object_row{track_type::bfd, fill_bfd},
};

template <typename Record>
void fill_common(const ot_track& track, Record& record) noexcept {
  record.TrackeName.assign(track.name.view());
  record.Type = track.type;
  record.TrackState = track.state == track_state::up;
  record.TrackTypeInfo.discriminant = static_cast<std::uint32_t>(track_type::none);
  for (const object_row& row : object_rows) {
    if (row.type == track.type) {
      record.TrackTypeInfo.discriminant = static_cast<std::uint32_t>(row.type);
      row.fill(track, record.TrackTypeInfo);
    }
  }
}

// --- What a list adds --------------------------------------------------------------------------

bool is_up(const track_name& name) noexcept {
  const ot_track* track = hash_db_get_track_item(name.c_str());
  return track != nullptr && track->state == track_state::up;
}

void set_value(bool_track_info__& member, std::uint32_t value) noexcept {
  member.WithNot = value != 0;
}
void set_value(threshold_track_info__& member, std::uint32_t value) noexcept {
  member.Weight = value;
}

template <typename Member>
int fill_members(const ot_track& track, Member** end) noexcept {
  for (const list_member* from = track.object.list.members; from != nullptr; from = from->next) {
    auto* member = brec_alloc<Member>();
    if (member == nullptr) {
      OT_TRACE_ERROR("(%s) : Failed to alloc memory for bool_track_info", "ot_fill_track_info");
      return no_memory;
    }
    member->ObjectName.assign(from->name.view());
    member->TrackState = is_up(from->name);
    set_value(*member, from->value);
    *end = member;
    end = &member->next;
  }
  return status_ok;
}

int fill_limit(std::uint32_t limit, std::uint32_t** ret) noexcept {
  *ret = brec_alloc<std::uint32_t>();
  if (*ret == nullptr) {
    OT_TRACE_ERROR("(%s) : Failed to alloc memory for bool_track_info", "ot_fill_track_info");
    return no_memory;
  }
  **ret = limit;
  return status_ok;
}

int fill_boolean(const ot_track& track, track_info__& record) noexcept {
  return fill_members(track, &record.BoolTracks);
}

int fill_threshold(const ot_track& track, track_info__& record) noexcept {
  int status = fill_limit(track.threshold_up, &record.ThresholdUp);
  if (status == status_ok) {
    status = fill_limit(track.threshold_down, &record.ThresholdDown);
  }
  return status == status_ok ? fill_members(track, &record.ThresholdTracks) : status;
}

struct list_row {
  track_type type;
  int (*fill)(const ot_track& track, track_info__& record) noexcept;
};
constexpr std::array list_rows = {
    list_row{track_type::boolean_and, fill_boolean},
    list_row{track_type::boolean_or, fill_boolean},
    list_row{track_type::threshold_weight, fill_threshold},
    list_row{track_type::threshold_percentage, fill_threshold},
};

int fill_list(const ot_track& track, track_info__& record) noexcept {
  for (const list_row& row : list_rows) {
    if (row.type == track.type) {
      return row.fill(track, record);
    }
  }
  return status_ok;
}

// --- A running delay ---------------------------------------------------------------------------

// A delay that will change nothing a reader sees is not shown: the same state again, or down after
// unknown.
bool delay_is_shown(track_state published, track_state waiting) noexcept {
  return waiting != published &&
         !(published == track_state::unknown && waiting == track_state::down);
}

int fill_delay(const ot_track& track, track_info__& record) noexcept {
  if (track.delay_timer == nullptr || !wtm_timer_leaf_running(track.delay_timer)) {
    return status_ok;
  }
  const ot_timer_ctx* ctx = get_timer_ctx(track.delay_timer);
  if (ctx == nullptr) {
    return status_ok;
  }
  const auto waiting = static_cast<track_state>(ctx->value);
  if (!delay_is_shown(track.state, waiting)) {
    return status_ok;
  }
  record.Delayed = brec_alloc<delayed_state_status__>();
  if (record.Delayed == nullptr) {
    return no_memory;
  }
  record.Delayed->TimeRemaining = wtm_timer_leaf_remaining(track.delay_timer);
  record.Delayed->TrackState = waiting == track_state::up;
  return status_ok;
}

}  // namespace

int ot_fill_intf_tracking_info(const ot_track& track, track_info__& record) noexcept {
  OT_TRACE_ENTRY();
  interface_tracking_info__** end = &record.TrackingInteraces;
  const auto append = [](void* context, std::string_view interface) {
    auto& last = *static_cast<interface_tracking_info__***>(context);
    auto* info = brec_alloc<interface_tracking_info__>();
    if (info == nullptr) {
      return no_memory;
    }
    info->InterfaceName.assign(interface);
    *last = info;
    last = &info->next;
    return status_ok;
  };
  const int status = visit_tracking_interfaces(track.name.view(), append, &end);
  if (status != status_ok) {
    OT_TRACE_ERROR("(%s) : malloc failed", __func__);
  }
  return status;
}

int ot_fill_track_info(const ot_track& track, track_info__& record) noexcept {
  OT_TRACE_ENTRY();
  fill_common(track, record);
  record.StateChangeCounter = track.state_change_counter;
  record.SecondsLastChange = static_cast<std::uint64_t>(track.seconds_last_change);
  for (const auto fill : {fill_list, fill_delay, ot_fill_intf_tracking_info}) {
    const int status = fill(track, record);
    if (status != status_ok) {
      return status;
    }
  }
  return status_ok;
}

int ot_fill_track_info_brief(const ot_track& track, track_info_brief__& record) noexcept {
  OT_TRACE_ENTRY();
  fill_common(track, record);
  return status_ok;
}

}  // namespace ot
