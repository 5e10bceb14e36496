// The lists that data providers build, as the platform reads them.
#pragma once

#include <vector>

#include "platform/ledger_datalist.h"
#include "platform/ledger_provider.h"

namespace ot {

struct ledger_dpv_entries {
  std::vector<ledger_entry> entries;
  bool more = false;
};

// Two types, so that one cannot be handed in for the other.
struct ledger_dpv_list : ledger_dpv_entries {};
struct ledger_dpv_datalist : ledger_dpv_entries {};

}  // namespace ot
