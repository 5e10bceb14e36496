// Route tracks as a kind: the reachability of an IPv4 prefix in a VRF.

#include <cstdio>

#include "config/verifiers.h"
#include "core/debug.h"
#include "core/in_addr_text.h"
#include "core/track.h"
#include "core/track_kind.h"
#include "platform/component_status.h"
#include "platform/ipv4.h"
#include "platform/ledger_status.h"
#include "platform/path_tuple.h"
#include "show/view.h"
#include "sources/route/fib.h"
#include "sources/route/table.h"
#include "sources/route/track.h"
#include "sources/route/vrf.h"

namespace ot {
namespace {

constexpr track_kind_type types[] = {
    {track_type::route, "reachability", "Reachability"},
};

constexpr ledger_registration leaves[] = {
    {"track/*/type/route/#1/a", ledger_row_handled, object_tracking_type_verify,
     ledger_nothing_to_apply},
    {"track/*/type/route/#1/info/ip_address", ledger_row_handled | ledger_row_tuple,
     object_tracking_verify_ip_mask_and_type, object_tracking_type_route_ip_apply,
     ledger_turn::usual, 2},
    {"track/*/type/route/#1/info/vrf", ledger_row_handled | ledger_row_text,
     object_tracking_default_verify, object_tracking_type_route_vrf_apply, ledger_turn::first,
     vrf_text::capacity - 1},
};

// Whether the track has its route type item.
int route_type_item_status(const char* name) noexcept {
  char path[160];
  std::snprintf(path, sizeof path, "cfg/gl/object_tracking/track/%s/type/route/0x2/a", name);
  ledger_conn* ledger = ledger_get_default_conn();
  ledger_value item;
  return ledger == nullptr ? ledger_unreachable : ledger_item_get(ledger, path, &item);
}

bool mask_is_contiguous(const ledger_value* value) noexcept {
  std::uint32_t address = 0;
  std::uint32_t mask = 0;
  return value != nullptr &&
         path_tuple_unpack(value->bytes(), "%N%N", &address, &mask) == status_ok &&
         ipv4_mask_is_contiguous(mask);
}

// The egress interface, for a route that is reachable.
void fill_next_hop(const route_object& route, route_track_info__& info) noexcept {
  fib_result result;
  const std::uint32_t vrf_id = ot_vmap_vrf_name_2_vrf_id(route.vrf.c_str());
  const int status = traced_route_lookup("ot_fill_track_info", route.prefix, route.vrf.c_str(),
                                         ot_fec_lookup(route.prefix, vrf_id, result.out()));
  if (status == status_ok && result.get() != nullptr) {
    info.NextHop.assign(result.get()->first_hop.view());
  }
}

void fill_object(const ot_track& track, track_type_info& info) noexcept {
  const route_object& route = track.object.route;
  info.RouteTracks.Prefix = route.prefix;
  info.RouteTracks.PrefixLength = route.mask;  // readers take it as the mask it is
  info.RouteTracks.VRF.assign(route.vrf.view());
  if (track.source_state == track_state::up) {
    fill_next_hop(route, info.RouteTracks);
  }
}

object_column show_object(const track_info_brief__& record) {
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

rest_of_record show_detail(const printed_track& track) {
  const track_info__& record = track.record;
  const route_track_info__& route = record.TrackTypeInfo.RouteTracks;
  if (route.Prefix == 0) {
    return rest_of_record::printed;
  }
  std::printf("\tIp route %s %s reachability ip vrf %s\n", in_addr_s(route.Prefix),
              in_addr_s(route.PrefixLength), route.VRF.c_str());
  print_state(track, record.TrackState);
  if (record.TrackState) {
    std::printf("\tFirst Hop interface %s\n", route.NextHop.c_str());
  }
  print_changes(record);
  return rest_of_record::printed;
}

constexpr service_of_tracks service = {router_service::fib, "fib", pending_route_count};

constexpr start_step tables[] = {
    {"route table", [](const start_context&) { return ipv4_route_table_create(); },
     []() noexcept {
       drop_pending_routes();
       drop_all_routes();
     }},
};
constexpr start_step connections[] = {
    {"VRF service", [](const start_context& c) { return ot_vmap_init(c.manager); }, ot_vmap_stop},
    {"FIB", [](const start_context& c) { return ot_fec_init(c.manager); }, ot_fec_close},
};

}  // namespace

int object_tracking_verify_ip_mask_and_type(const ledger_change& change, ledger_verdict& verdict) {
  OT_TRACE_ENTRY();
  const ledger_path_field* name = change.field(0);
  if (name == nullptr) {
    return invalid_argument;
  }
  if ((change.event & ledger_event_set) != 0 && route_type_item_status(name->text) != status_ok) {
    OT_TRACE_ERROR("(%s) : ledger track type = ROUTE", __func__);
    report_configuration_error(track_type_conflict);
    return refuse(track_type_conflict, verdict);
  }
  if ((change.event & (ledger_event_create | ledger_event_set)) != 0 &&
      !mask_is_contiguous(change.new_value)) {
    report_configuration_error(route_mask_not_contiguous);
    return refuse(route_mask_not_contiguous, verdict);
  }
  return accept(verdict);
}

extern const track_kind route_kind = {
    .types = types,
    .leaves = leaves,
    .detach = [](ot_track& track) { return delete_track_from_route_entry(track.name.c_str()); },
    .detach_failed = "(%s) : delete_track_from_route_entry failed - %s",
    .fill_object = fill_object,
    .record_key = "type-route",
    .show_object = show_object,
    .show_detail = show_detail,
    .service = &service,
    .tables = tables,
    .connections = connections,
};

}  // namespace ot
