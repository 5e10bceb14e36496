// What a service provides to the process framework that runs it. The framework owns the process (C
// entry point, signals, ledger, loop); the service defines these and is otherwise unknown to
// it.
#pragma once

#include <cstdint>

#include "platform/evm.h"

namespace ot {

// The front-end: the executable called with "show ..." as its arguments. Its exit status; may end
// the process itself.
int main(int argc, char** argv);

// Starts the service on `manager`, on whose thread it is called; the platform's ledger is open.
// `start_count`: how often the service has been started since the machine was, with this start. 0,
// or a status code after a system message that names what failed.
int ot_start(evm* manager, std::uint32_t start_count);
// Its end, with the ledger still open: gives up what others hold for it. What it has published
// stays as it is.
void ot_stop() noexcept;

}  // namespace ot
