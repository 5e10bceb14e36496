// ledger_: changing the configuration. A commit is all or nothing: every change is checked against
// the registered tree and by its verifier before anything is stored, and what was stored survives
// the machine's power loss before the answer comes.
//
// A commit may have stages, for changes that are accepted only where others have been made: a track
// changes its kind when it is deleted and then made anew. A stage is checked and verified against
// the configuration that the stages before it lead to. Nothing of any stage is stored, applied or
// published before all of them are accepted; then all are stored at once and applied one after the
// other.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "platform/ledger.h"

namespace ot {

inline constexpr std::size_t ledger_commit_max = 16384;  // changes

struct ledger_proposal {
  std::string path;     // absolute
  bool remove = false;  // delete the item; kind and value are ignored
  ledger_kind kind = ledger_kind::u32;
  std::vector<std::byte> value;
  std::uint32_t stage = 0;  // never less than that of the proposal before
};

// Why a commit was refused, or what failed when it was applied.
struct ledger_refusal {
  std::string path;
  int code = 0;
  std::string text;
  bool applied = false;  // true: stored, but its apply function failed
};

// Applied in this order, stage by stage: deletes first, those of an owner's existence behind the
// others, then the rest, each group in the order given. A set of an absent item creates it. 0 when
// stored and applied; else the first refusal's code, with all those of the first stage that is
// refused in `ret`. Nothing is stored unless every refusal has `applied`.
int ledger_commit(ledger_conn* connection, std::span<const ledger_proposal> changes,
                  std::vector<ledger_refusal>* ret);

// The same for changes that were worked out from what was read: refused as a whole with
// ledger_changed when the configuration has another generation (ledger_config_generation, asked
// before the first item was read) by now. 0: whatever it has.
int ledger_commit_unless_changed(ledger_conn* connection, std::uint64_t generation,
                                 std::span<const ledger_proposal> changes,
                                 std::vector<ledger_refusal>* ret);

}  // namespace ot
