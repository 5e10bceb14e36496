// The operational data "engine/all" below "/oper/object_tracking/gl/": how the service stands to
// the services that its tracks need. Its record is a chain with one element for each. Main thread.
#pragma once

#include <cstdint>

#include "oper/records/track_records.h"
#include "platform/ledger_provider.h"

namespace ot {

struct engine_info__ {
  engine_info__* next = nullptr;
  record_name Service;  // "bfd", "probe", "fib", "interfaces"
  bool Connected = false;
  std::uint64_t Since = 0;    // wall clock: when that became so
  std::uint32_t Pending = 0;  // how much waits for the service
};

extern const brec_descriptor engine_info___brec;

// Registers the record's type, beside those of the tracks. As ot_records_register; readers in other
// programs call it too.
int ot_engine_record_register() noexcept;

// Registers the branch. After the record's type, before the first request. Status code.
int ot_engine_provider_register() noexcept;

// Answers the key "all". 0 with the reply filled, or ledger_no_data.
int ot_dpv_engine_get(ledger_dpv_reply* reply, const ledger_dpv_request* request);

}  // namespace ot
