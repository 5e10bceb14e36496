// What only the process that hosts the ledger can do: register trees and providers, replay, notify.
#pragma once

#include "platform/ledger/engine/engine.h"

namespace ot {

// Runs `body(engine, argument)` with the engine that this process hosts, under the platform's
// pause; ledger_unreachable when it hosts none.
int ledger_enter_host(int (*body)(ledger_engine& engine, void* argument), void* argument);

}  // namespace ot
