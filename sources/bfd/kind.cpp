// BFD tracks as a kind: a session to a destination over an interface.

#include <cstdio>

#include "core/connections.h"
#include "core/debug.h"
#include "core/in_addr_text.h"
#include "core/track.h"
#include "core/track_kind.h"
#include "platform/bfd_status.h"
#include "platform/process.h"
#include "platform/status.h"
#include "show/view.h"
#include "sources/bfd/client.h"
#include "sources/bfd/session_record.h"
#include "sources/bfd/table.h"
#include "sources/bfd/track.h"

namespace ot {
namespace {

constexpr track_kind_type types[] = {
    {track_type::bfd, "reachability", "BFD Reachability"},
};

constexpr ledger_registration leaves[] = {
    {"track/*/type/bfdprb/#1/rate/#/debounce_count/#/Interface/*63/destaddress",
     ledger_row_handled | ledger_row_tuple, object_tracking_type_bfdprb_verify,
     object_tracking_type_bfdprb_apply, ledger_turn::usual, 1},
};

int detach(ot_track& track) {
  OT_TRACE_DETAIL(
      " Found track_type : BFD_PRB. for track name %s  Delete this track from bfdprb entry",
      track.name.c_str());
  return object_tracking_type_bfdprb_delete(track.name.c_str());
}

void fill_object(const ot_track& track, track_type_info& info) noexcept {
  const bfd_object& bfd = track.object.bfd;
  info.BFDTracks.InterfaceName.assign(bfd.interface.view());
  info.BFDTracks.DestinationAddress = bfd.destination;
  info.BFDTracks.Rate = bfd.rate;
  info.BFDTracks.DebounceCount = bfd.debounce_count;
}

rest_of_record show_detail(const printed_track& track) {
  const track_info__& record = track.record;
  const bfdprb_track_info__& bfd = record.TrackTypeInfo.BFDTracks;
  std::printf("\tInterface %s Destination Address %s\n", display_name(bfd.InterfaceName).c_str(),
              in_addr_s(bfd.DestinationAddress));
  print_state(track, record.TrackState);
  print_changes(record);
  return rest_of_record::printed;
}

// The client is connected whatever runs the sessions: what is told of the service is the engine.
void look_at_engine() noexcept {
  const bfdc_engine_status engine = bfdc_engine();
  note_connection(router_service::bfd_engine, engine.running, engine.since);
}

std::uint32_t sessions_that_wait() noexcept {
  return bfd_cfg_count() + bfdc_sessions_not_run();
}

service_detail tell_engine() noexcept {
  const bfdc_engine_status engine = bfdc_engine();
  char text[service_detail::capacity];
  const int length =
      std::snprintf(text, sizeof text, "%s (%s)", engine.name.c_str(), engine.reason.c_str());
  return service_detail{engine.name.empty() || length < 0 ? "" : text};
}

std::uint64_t packets_discarded() noexcept {
  return bfdc_engine().discarded;
}

constexpr service_of_tracks service = {.service = router_service::bfd_engine,
                                       .name = "bfd",
                                       .pending = sessions_that_wait,
                                       .look = look_at_engine,
                                       .detail = tell_engine,
                                       .discarded = packets_discarded};

// Stored tracks are made when they are applied, not later: the client is connected as soon as its
// thread runs.
int wait_for_client(const start_context& context) {
  process_wait(context.manager, [] { return is_ot_bfd_connection_up != 0 || ot_bfd_ended(); });
  return status_ok;
}

constexpr start_step tables[] = {
    {"BFD table", [](const start_context&) { return bfdprb_table_create(); },
     []() noexcept {
       drop_bfd_cfgs();
       drop_all_bfd_sessions();
     }},
};
constexpr start_step connections[] = {
    {"BFD session data", [](const start_context&) { return ot_bfd_session_provider_register(); }},
    {"BFD thread", [](const start_context& c) { return ot_bfd_init(c.manager); }, ot_bfd_stop},
    {"BFD connection", wait_for_client},
};

}  // namespace

extern const track_kind bfd_kind = {
    .types = types,
    .leaves = leaves,
    .detach = detach,
    .detach_failed = "(%s) : object_tracking_type_bfdprb_delete failed - %s",
    .fill_object = fill_object,
    .show_object = [](const track_info_brief__&) { return object_column("BFD Session"); },
    .show_detail = show_detail,
    .service = &service,
    .tables = tables,
    .connections = connections,
};

}  // namespace ot
