// Who may do what: decided once a connection, by the kernel's word on its other end.
#pragma once

#include <sys/types.h>

namespace ot {

struct ledger_rights {
  bool read = false;
  bool write = false;
};

// Root, the service's own user and the members of `members` (-1: no such group) may do everything,
// others nothing.
ledger_rights ledger_rights_of(int socket, gid_t members) noexcept;

}  // namespace ot
