// The operational data "engine/all" below "/oper/object_tracking/gl/": how the service stands to
// the services that its tracks need. Main thread.
#pragma once

#include "platform/ledger_provider.h"

namespace ot {

// Registers the branch. After the record's type, before the first request. Status code.
int ot_engine_provider_register() noexcept;

// Answers the key "all". 0 with the reply filled, or ledger_no_data.
int ot_dpv_engine_get(ledger_dpv_reply* reply, const ledger_dpv_request* request);

}  // namespace ot
