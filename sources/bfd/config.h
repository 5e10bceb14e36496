// The configuration item of a BFD track. Rate, debounce count and interface stand in its path, the
// destination is its value. Main thread.
#pragma once

#include "platform/ledger_config.h"

namespace ot {

// Verifier: accepts. 22 without a track name.
int object_tracking_type_bfdprb_verify(const ledger_change& change, ledger_verdict& verdict);

// Apply function. A set to the same destination changes nothing, whatever else it carries. 0, 22
// when the path lacks a field, 12, or the error of the creation or deletion.
int object_tracking_type_bfdprb_apply(const ledger_change& change);

}  // namespace ot
