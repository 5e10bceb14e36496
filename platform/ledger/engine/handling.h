// What commits and the replay of the stored configuration do alike with the item of a row.
#pragma once

#include <span>
#include <string>

#include "platform/ledger/engine/environment.h"
#include "platform/ledger_config.h"

namespace ot {

// Whether the row has functions to be called, and whether this build has them.
bool ledger_row_is_handled(const ledger_registration& row) noexcept;
bool ledger_row_is_available(const ledger_registration& row) noexcept;

// What is wrong with a value for the row; empty when nothing is.
std::string ledger_row_value_fault(const ledger_registration& row, ledger_kind kind,
                                   std::span<const std::byte> value);

// Runs the row's apply function, if it has something to run. Its result.
int ledger_row_apply(ledger_environment& environment, const ledger_registration& row,
                     const ledger_change& change);

}  // namespace ot
