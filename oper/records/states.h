// The operational data below "/oper/object_tracking/gl/states/": what the described records leave
// out of a track's state, for programs that have to know it exactly. "all" is a chain of every
// track, as of one moment; any other key is a track's name. Main thread.
#pragma once

#include <cstdint>

#include "core/track_type.h"
#include "platform/brec.h"
#include "platform/ledger_provider.h"

namespace ot {

// States by their numbers: 0 unknown, 1 up, 2 down.
struct state_info__ {
  state_info__* next = nullptr;
  track_name Name;
  std::uint32_t State = 0;      // as published
  std::uint32_t Source = 0;     // what the object, or the list's members, last said
  bool Delayed = false;         // a delay runs; the rest is about it
  std::uint32_t Waiting = 0;    // the state that is published at its end
  std::uint64_t Remaining = 0;  // milliseconds
};

extern const brec_descriptor state_info___brec;

// Registers the record's type, as register_records; readers in other programs call it too.
int ot_states_record_register() noexcept;

// Registers the record's type, in this process perhaps again, and the branch. Status code.
int ot_states_provider_register() noexcept;

// 0 with the reply filled, or ledger_no_data.
int ot_dpv_states_get(ledger_dpv_reply* reply, const ledger_dpv_request* request);

}  // namespace ot
