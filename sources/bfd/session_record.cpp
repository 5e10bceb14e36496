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
    {"bfd_session", ot_dpv_bfd_session_get, nullptr, nullptr},
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

}  // namespace

const brec_descriptor bfd_session_info___brec = {
    1,
    "bfd_session_info__",
    "libobject_tracking_brec_desc.dll",
    {},
    sizeof(bfd_session_info__),
    "$15={State}D{Diagnostic}D{RemoteState}D{RemoteDiagnostic}D{TransmitInterval}D"
    "{ReceiveInterval}D{DetectionTime}D{Ups}D{Downs}D{PacketsIn}H{PacketsOut}H{OfAnother}b"
    "{FollowedBy}33x%S{Problem}120x%S;",
    "$15=DDDDDDDDDHHb33x%S120x%S;"};

int ot_bfd_session_record_register() noexcept {
  static constexpr const brec_descriptor* descriptors[] = {&bfd_session_info___brec};
  const int status = register_records(descriptors);
  return status == duplicate_key ? status_ok : status;
}

int ot_bfd_session_provider_register() noexcept {
  const int status = ot_bfd_session_record_register();
  return status == status_ok ? ledger_dpv_register("/oper/object_tracking/gl/", session_provider)
                             : status;
}

int ot_dpv_bfd_session_get(ledger_dpv_reply* reply, const ledger_dpv_request* request) {
  OT_TRACE_ENTRY();
  const ot_track* track = request->key == nullptr ? nullptr : hash_db_get_track_item(request->key);
  bfdc_session_status session;
  if (track == nullptr || track->type != track_type::bfd) {
    return ledger_no_data;
  }
  const bfd_object& bfd = track->object.bfd;
  const bfd_address destination = ipv4_bfd_address(bfd.destination);
  if (!bfdc_session(bfd.ifhandle, destination, &session)) {
    session.problem.assign("no session is asked for");
  }
  bfd_session_info__ record = record_of(session);
  const bfdprb_entry* entry = hash_db_get_bfdprb_item(bfd.ifhandle, destination);
  if (entry != nullptr && entry->tracks != nullptr) {
    record.FollowedBy.assign(entry->tracks->name.view());
  }
  return ot_dpv_encoded(
      __func__, brec_encode(bfd_session_info___brec, &record, &reply->buffer, &reply->length),
      *reply);
}

}  // namespace ot
