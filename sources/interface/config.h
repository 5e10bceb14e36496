// The configuration item that makes a track follow an interface.
#pragma once

#include "platform/ledger_config.h"

namespace ot {

// Apply function of type/interface/#/info/interface. 0, 22 without a track name, or the tie's
// error.
int object_tracking_type_interface_apply(const ledger_change& change);

}  // namespace ot
