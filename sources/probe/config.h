// The configuration item that makes a track follow a probe operation.
#pragma once

#include "platform/ledger_config.h"

namespace ot {

// Verifier of the type node: accepts. 22 without a track name.
int object_tracking_type_prb_verify(const ledger_change& change, ledger_verdict& verdict);

// Verifier of op_id: refuses while the probe package is missing, for a track of another type, and
// for an operation that a track follows already. An operation's id takes the place of the type
// number in the type check, so an existing probe track cannot be given another operation in place.
int object_tracking_prb_verify(const ledger_change& change, ledger_verdict& verdict);

// Apply function of type/prb/#/op_id. 0, 22 without a track name, or the tie's error.
int object_tracking_type_prb_apply(const ledger_change& change);

}  // namespace ot
