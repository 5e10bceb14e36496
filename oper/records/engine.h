// The operational data below "/oper/object_tracking/gl/engine/". "all": how the service stands to
// the services that its tracks need, a chain with one element for each. "loop": how long the main
// thread's event loop was kept busy. "log": what the log's readers have missed. Main thread.
#pragma once

#include <cstdint>

#include "core/connections.h"
#include "oper/records/track_records.h"
#include "platform/evm.h"
#include "platform/ledger_provider.h"

namespace ot {

struct engine_info__ {
  engine_info__* next = nullptr;
  record_name Service;  // "bfd", "probe", "fib", "interfaces"
  bool Connected = false;
  std::uint64_t Since = 0;      // wall clock: when that became so
  std::uint32_t Pending = 0;    // how much waits for the service
  service_detail Detail;        // what it is and why; empty where there is nothing to tell
  std::uint64_t Discarded = 0;  // packets that came to it and were discarded
};

struct loop_info__ {
  std::uint64_t Since = 0;        // wall clock, as LongestAt: the service's start
  std::uint64_t LongestAt = 0;    // 0: there was no turn yet
  std::uint32_t LongestTurn = 0;  // microseconds
};

struct log_info__ {
  std::uint64_t Dropped = 0;  // lines, since the service's start
};

extern const brec_descriptor engine_info___brec;
extern const brec_descriptor loop_info___brec;
extern const brec_descriptor log_info___brec;

// Registers the records' types, beside those of the tracks. As ot_records_register; readers in
// other programs call it too.
int ot_engine_record_register() noexcept;

// Registers the branch. `manager` runs the main thread's loop and outlives the registration. After
// the records' types, before the first request. Status code.
int ot_engine_provider_register(const evm* manager) noexcept;

// Answers the keys "all", "loop" and "log". 0 with the reply filled, or ledger_no_data.
int ot_dpv_engine_get(ledger_dpv_reply* reply, const ledger_dpv_request* request);

}  // namespace ot
