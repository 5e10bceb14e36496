// Bulk notifications of the interface manager. Main thread.
#pragma once

#include "platform/interface_manager.h"

namespace ot {

// The callback registered with the interface manager; 0. A message with another code than the bulk
// code, and items without attributes, change nothing.
int ot_ifm_handler(evm* manager, const ifc_bulk_notification* message);

}  // namespace ot
