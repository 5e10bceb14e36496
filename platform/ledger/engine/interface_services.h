// The functions of the row that the ledger's own tree (tree.h) has for the services of interfaces.
#pragma once

#include "platform/ledger_config.h"

namespace ot {

// Accepts everything.
int ledger_interface_service_verify(const ledger_change& change, ledger_verdict& verdict) noexcept;
// Reports the change to the one who follows these items, if there is one; its result.
int ledger_interface_service_apply(const ledger_change& change);

}  // namespace ot
