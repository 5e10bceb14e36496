// The requests that the socket carries to the engine.
#pragma once

#include <string_view>

#include "platform/ledger/engine/engine.h"
#include "platform/ledger/server/access.h"
#include "platform/ledger/wire.h"

namespace ot {

// Serves one request: reads its body, asks the engine and writes the answer, status first. False
// for a member that there is none of. May throw bad_alloc.
bool ledger_serve_request(ledger_engine& engine, const ledger_rights& rights,
                          std::string_view member, std::span<const std::byte> body,
                          ledger_writer& answer);

}  // namespace ot
