// Interface tracks as a kind: the line protocol of an interface.

#include <cstdio>

#include "config/verifiers.h"
#include "core/track.h"
#include "core/track_kind.h"
#include "platform/event_connections.h"
#include "platform/status.h"
#include "show/view.h"
#include "sources/interface/client.h"
#include "sources/interface/table.h"
#include "sources/interface/track.h"

namespace ot {
namespace {

constexpr track_kind_type types[] = {
    {track_type::interface, "line protocol", "Line protocol"},
};

constexpr ledger_registration leaves[] = {
    {"track/*/type/interface/#1/a", ledger_row_handled, object_tracking_type_verify,
     ledger_nothing_to_apply},
    {"track/*/type/interface/#1/info/interface", ledger_row_handled | ledger_row_text,
     object_tracking_type_interface_verify, object_tracking_type_interface_apply,
     ledger_turn::usual, ifc_name::capacity - 1},
};

int detach(ot_track& track) {
  return delete_track_from_interface_entry(track.object.interface.name.c_str(), track.name.c_str());
}

void fill_object(const ot_track& track, track_type_info& info) noexcept {
  info.InterfaceTracks.InterfaceName.assign(track.object.interface.name.view());
}

object_column show_object(const track_info_brief__& record) {
  char text[object_column::capacity];
  std::snprintf(text, sizeof text, "interface %-32.31s",
                display_name(record.TrackTypeInfo.InterfaceTracks.InterfaceName).c_str());
  return object_column(text);
}

rest_of_record show_detail(const printed_track& track) {
  const track_info__& record = track.record;
  std::printf("\tInterface %s line-protocol\n",
              display_name(record.TrackTypeInfo.InterfaceTracks.InterfaceName).c_str());
  print_state(track, record.TrackState);
  print_changes(record);
  return rest_of_record::printed;
}

// Interfaces that a track follows and the interface manager does not know. It is asked: an entry's
// handle stays 0 when its interface comes later.
std::uint32_t interfaces_not_there() noexcept {
  std::uint32_t count = 0;
  for (const auto* entry = hash_db_first_data<interface_entry>(interfaces_table); entry != nullptr;
       entry = hash_db_next_data<interface_entry>(interfaces_table)) {
    std::uint32_t ifhandle = 0;
    const bool waits = entry->tracks != nullptr &&
                       ot_dpv_get_ifhandle(entry->ifname.c_str(), &ifhandle) != status_ok;
    count += waits ? 1U : 0U;
  }
  return count;
}

constexpr service_of_tracks service = {router_service::interface_manager, "interfaces",
                                       interfaces_not_there};

int open_interface_manager(const start_context& context) {
  const int status = ot_init(context.manager);
  return status == open_in_progress ? status_ok : status;
}

constexpr start_step tables[] = {
    {"interface table", [](const start_context&) { return interfaces_table_create(); },
     drop_all_interfaces},
};
constexpr start_step connections[] = {
    {"interface manager", open_interface_manager, ot_ifm_close},
};

}  // namespace

extern const track_kind interface_kind = {
    .types = types,
    .leaves = leaves,
    .detach = detach,
    .detach_failed = "(%s) :delete_track_from_interface_entry failed - %s",
    .fill_object = fill_object,
    .record_key = "type-interface",
    .show_object = show_object,
    .show_detail = show_detail,
    .service = &service,
    .tables = tables,
    .connections = connections,
};

}  // namespace ot
