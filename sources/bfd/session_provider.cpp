// What the service knows of a session, asked for by the name of a track.
#include "sources/bfd/session_record.h"

#include "core/debug.h"
#include "core/track.h"
#include "oper/records/provider.h"
#include "platform/bfd_status.h"
#include "platform/ledger_status.h"
#include "platform/status.h"
#include "sources/bfd/table.h"

namespace ot {
namespace {

constexpr ledger_dpv_provider session_provider[] = {
    {"bfd_session", ot_dpv_bfd_session_get, nullptr, ot_bfd_session_datalist, true},
};

bfd_session_info__ record_of(const bfdc_session_status& session) noexcept {
  bfd_session_info__ record;
  record.State = session.state;
  record.Diagnostic = session.diagnostic;
  record.RemoteState = session.remote_state;
  record.RemoteDiagnostic = session.remote_diagnostic;
  record.TransmitInterval = session.transmit_interval;
  record.ReceiveInterval = session.receive_interval;
  record.DetectionTime = session.detection_time;
  record.Ups = session.ups;
  record.Downs = session.downs;
  record.PacketsIn = session.packets_in;
  record.PacketsOut = session.packets_out;
  record.OfAnother = session.of_another;
  record.Problem.assign(session.problem.view());
  return record;
}

bfd_session_info__ session_of(const ot_track& track) noexcept {
  const bfd_object& bfd = track.object.bfd;
  const bfd_address destination = ipv4_bfd_address(bfd.destination);
  bfdc_session_status session;
  if (!bfdc_session(bfd.ifhandle, destination, &session)) {
    session.problem.assign("no session is asked for");
  }
  bfd_session_info__ record = record_of(session);
  const bfdprb_entry* entry = hash_db_get_bfdprb_item(bfd.ifhandle, destination);
  if (entry != nullptr && entry->tracks != nullptr) {
    record.FollowedBy.assign(entry->tracks->name.view());
  }
  return record;
}

}  // namespace

int ot_bfd_session_provider_register() noexcept {
  const int status = ot_bfd_session_record_register();
  return status == status_ok ? ledger_dpv_register("/oper/object_tracking/gl/", session_provider)
                             : status;
}

int ot_dpv_bfd_session_get(ledger_dpv_reply* reply, const ledger_dpv_request* request) {
  OT_TRACE_ENTRY();
  const ot_track* track = request->key == nullptr ? nullptr : hash_db_get_track_item(request->key);
  if (track == nullptr || track->type != track_type::bfd) {
    return ledger_no_data;
  }
  const bfd_session_info__ record = session_of(*track);
  return ot_dpv_encoded(
      __func__, brec_encode(bfd_session_info___brec, &record, &reply->buffer, &reply->length),
      *reply);
}

int ot_bfd_session_datalist(ledger_dpv_datalist_request* request) {
  OT_TRACE_ENTRY();
  ledger_dpv_list* names = nullptr;
  ledger_dpv_datalist* handle = nullptr;
  int status = ot_init_list_datalist(nullptr, request, &names, &handle);
  std::uint32_t count = 0;
  for (auto* track = hash_db_first_data<ot_track>(tracks_table);
       status == status_ok && track != nullptr; track = hash_db_next_data<ot_track>(tracks_table)) {
    if (track->type != track_type::bfd) {
      continue;
    }
    const bfd_session_info__ record = session_of(*track);
    char error_text[256] = "";
    status = ot_add_list_datalist(nullptr, request, names, handle, track->name.c_str(), &record,
                                  bfd_session_info___brec, error_text, sizeof error_text);
    if (status != status_ok) {
      OT_TRACE_ERROR("(%s) : %s", __func__, error_text);
    }
    ++count;
  }
  ot_release_list_datalist(nullptr, request, names, handle, count, status);
  return status;
}

}  // namespace ot
