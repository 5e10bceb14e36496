// The requests that the socket carries to the engine, and who may make them.
#pragma once

#include <sys/types.h>

#include <span>
#include <string_view>

#include "platform/ledger/engine/engine.h"
#include "platform/ledger/messages.h"

namespace ot {

struct ledger_rights {
  bool read = false;
  bool write = false;
};

// Root, the service's own user and the members of `members` (-1: no such group) may read everything
// and write configuration and trace flags, others nothing. Operational items are the service's own,
// which writes them without a socket.
ledger_rights ledger_rights_of(int socket, gid_t members) noexcept;

// Serves one request that is answered at once: reads its body, asks the engine and writes the
// answer, status first. False for a member that there is none of. May throw bad_alloc.
bool ledger_serve_request(ledger_engine& engine, const ledger_rights& rights,
                          std::string_view member, std::span<const std::byte> body,
                          ledger_writer& answer);

}  // namespace ot
