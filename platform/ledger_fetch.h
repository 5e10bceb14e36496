// ledger_: reading one item from another process without ever waiting, beside whatever else a
// program waits for.
#pragma once

#include "platform/ledger.h"

namespace ot {

struct ledger_fetch;

// Asks for the item at `path` (absolute), over a connection of its own. 0 or a status code:
// ledger_unreachable when the service is not running, ledger_no_answer when it takes no connection
// now.
int ledger_fetch_begin(const char* path, ledger_fetch** ret) noexcept;
// Readable when there is something to take; the same as long as it lives.
int ledger_fetch_fd(const ledger_fetch* fetch) noexcept;
// Takes what has come. 0 with the item, ledger_no_answer as long as it is not there, or what the
// service says; ledger_busy when it has ended the connection.
int ledger_fetch_take(ledger_fetch* fetch, ledger_value* ret) noexcept;
void ledger_fetch_end(ledger_fetch* fetch) noexcept;

}  // namespace ot
