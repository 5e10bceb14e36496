// The operational record of the services that tracks stand on, a chain with one element each.
#pragma once

#include <cstdint>

#include "oper/records/track_records.h"

namespace ot {

struct engine_info__ {
  engine_info__* next = nullptr;
  record_name Service;  // "bfd", "probe", "fib", "interfaces"
  bool Connected = false;
  std::uint64_t Since = 0;    // wall clock: when that became so
  std::uint32_t Pending = 0;  // how much waits for the service
};

extern const brec_descriptor engine_info___brec;

// Registers the record's type, beside those of the tracks. As ot_records_register.
int ot_engine_record_register() noexcept;

}  // namespace ot
