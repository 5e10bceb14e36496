// The record alone, for programs that read it: they do not carry the service with them.
#include "sources/bfd/session_record.h"

#include "oper/records/track_records.h"
#include "platform/status.h"

namespace ot {

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

}  // namespace ot
