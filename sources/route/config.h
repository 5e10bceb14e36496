// The two configuration items of a route track. While the FIB connection is down their creation is
// queued and applied on reconnection.
#pragma once

#include "platform/ledger_config.h"

namespace ot {

// Verifier of the address item: the mask must be contiguous, and a set needs the route type item.
int object_tracking_verify_ip_mask_and_type(const ledger_change& change, ledger_verdict& verdict);

// Verifier of the address item: the mask must be contiguous, and a set needs the route type item.
int object_tracking_verify_ip_mask_and_type(const ledger_change& change, ledger_verdict& verdict);

// Apply function of type/route/#/info/ip_address, a tuple of address and mask in network byte
// order.
int object_tracking_type_route_ip_apply(const ledger_change& change);

// Apply function of type/route/#/info/vrf, a VRF name. Names that agree in their first eight
// characters count as the same. Deleting the item means the default VRF.
int object_tracking_type_route_vrf_apply(const ledger_change& change);

}  // namespace ot
