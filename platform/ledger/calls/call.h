// One call through the ledger's edge. Each platform says what serves it: the engine of this
// process, the socket, or the tests' in-memory ledger.
#pragma once

#include <new>

#include "platform/ledger/calls/backend.h"
#include "platform/status.h"

namespace ot {

// Runs `body(backend, argument)` with what serves this process and thread; the platform's lock or
// pause is held that long. Calls nest only in the process that hosts the ledger, where an apply
// function uses it.
int ledger_enter(int (*body)(ledger_backend& backend, void* argument), void* argument);

// The same for a lambda; lack of memory becomes a status.
template <typename Body>
int ledger_call(Body body) {
  try {
    return ledger_enter([](ledger_backend& backend,
                           void* argument) { return (*static_cast<Body*>(argument))(backend); },
                        &body);
  } catch (const std::bad_alloc&) {
    return no_memory;
  }
}

}  // namespace ot
