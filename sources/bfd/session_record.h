// The operational data below "/oper/object_tracking/gl/bfd_session/": the session that a BFD track
// follows, as its engine knows it, under the track's name. Main thread.
#pragma once

#include <cstdint>

#include "oper/records/track_records.h"
#include "platform/brec.h"
#include "platform/ledger_provider.h"

namespace ot {

// States and diagnostics by their numbers in the protocol. Intervals in microseconds, 0 when they
// are not known.
struct bfd_session_info__ {
  std::uint32_t State = 0;
  std::uint32_t Diagnostic = 0;
  std::uint32_t RemoteState = 0;
  std::uint32_t RemoteDiagnostic = 0;
  std::uint32_t TransmitInterval = 0;
  std::uint32_t ReceiveInterval = 0;
  std::uint32_t DetectionTime = 0;
  std::uint32_t Ups = 0;
  std::uint32_t Downs = 0;
  std::uint64_t PacketsIn = 0;
  std::uint64_t PacketsOut = 0;
  bool OfAnother = false;   // run for somebody else, and followed only
  record_name FollowedBy;   // of the tracks on this session, the one that follows it
  fixed_text<120> Problem;  // why it is not run; empty when it is
};

extern const brec_descriptor bfd_session_info___brec;

// Registers the record's type, as register_records; readers in other programs call it too.
int ot_bfd_session_record_register() noexcept;

// Registers the record's type, in this process perhaps again, and the branch. Status code.
int ot_bfd_session_provider_register() noexcept;

// Answers for a BFD track by its name; ledger_no_data for other names.
int ot_dpv_bfd_session_get(ledger_dpv_reply* reply, const ledger_dpv_request* request);

// All BFD tracks, whatever the marker. 0 with count and handle in the request, or
// ledger_provider_failure.
int ot_bfd_session_datalist(ledger_dpv_datalist_request* request);

}  // namespace ot
