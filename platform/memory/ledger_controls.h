// The test's controls of the in-memory ledger. A test acts as a client through the public functions
// (ledger_commit, ledger_item_get, ledger_datalist ...), which need no socket here.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/ledger.h"
#include "platform/ledger_provider.h"

namespace ot {

// A ledger as a fresh process finds it: nothing stored, nothing registered, nothing failing.
void ledger_control_reset();
// The service has been started again: stored items stay; trees, providers, switches and collected
// notifications are gone.
void ledger_control_restart();

enum class ledger_operation { bind, get, set, erase, walk, commit, list, notify };
// The next call of the operation returns `code` and does nothing. With `let_through`, that many
// calls go well before.
void ledger_control_fail_next(ledger_operation operation, int code,
                              unsigned let_through = 0) noexcept;

// What ledger_library_readable answers; true after a reset.
void ledger_control_library(bool readable) noexcept;

// New configuration items are taken while there are fewer than `items`.
void ledger_control_capacity(std::size_t items) noexcept;
// The next commit's storing fails with `code`, after its verifiers have accepted.
void ledger_control_fail_next_store(int code) noexcept;

// A stored item, without asking a data provider: 0 or ledger_no_data.
int ledger_control_peek(std::string_view path, ledger_value& ret);
// Puts an item, configuration too, straight into its store, as an earlier run left it.
void ledger_control_put(std::string_view path, ledger_kind kind, std::span<const std::byte> value);

struct ledger_sent_notification {
  std::string path;  // absolute
  std::uint32_t kind = 0;
  std::uint32_t value = 0;  // of a set the new one, of a delete the old one
  std::uint32_t sequence = 0;
  ledger_dpv_notification entry;  // as it was handed over; what it points to is gone
};
// The batches handed to ledger_dpv_generate_notifications since the reset or the last call of this.
std::vector<std::vector<ledger_sent_notification>> ledger_control_take_notifications();
// Lines the ledger wrote to the log since the reset or the last call of this.
std::vector<std::string> ledger_control_take_log();

}  // namespace ot
