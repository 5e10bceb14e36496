// ledger_: registering a configuration tree with its verify and apply functions. Inside the
// service's process only; everything here runs on the main thread.
#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "platform/ledger.h"

namespace ot {

// --- The tree ---------------------------------------------------------------------------------

enum class ledger_node_kind : std::uint32_t {
  literal = 1,
  name = 2,    // wildcard: any non-empty element
  number = 7,  // wildcard: a hexadecimal number such as "0x2"
};

struct ledger_tree_node {
  const char* name;  // null for a wildcard
  ledger_node_kind kind;
  std::int32_t first_child;    // index, -1 none
  std::int32_t next_sibling;   // index, -1 none
  std::int32_t handler;        // index into the registration table for a leaf, else -1
  std::uint64_t has_children;  // 1 for an inner node
  // Of a name wildcard the most characters that a name has (0: as many as a path may have), of a
  // number wildcard the least number.
  std::uint32_t limit = 0;
};

// --- What verify and apply functions receive ---------------------------------------------------

enum ledger_event : std::uint32_t {
  ledger_event_create = 1,
  ledger_event_set = 2,
  ledger_event_delete = 4,
};

// The value of one wildcard of the item's path, in path order.
struct ledger_path_field {
  const char* text = nullptr;  // the element as written
  std::uint32_t number = 0;    // for a number wildcard
};

struct ledger_change {
  std::uint32_t event = 0;                    // bits of ledger_event
  std::span<const ledger_path_field> fields;  // empty: the item has no name
  const ledger_value* old_value = nullptr;    // present for set and delete
  const ledger_value* new_value = nullptr;    // present for create and set
  bool replayed = false;                      // stored before the service started

  // The field at `index`, or null when the path has no such field.
  [[nodiscard]] const ledger_path_field* field(std::size_t index) const noexcept {
    return index < fields.size() ? &fields[index] : nullptr;
  }
};

// A verifier's answer: a refusal sets `accept` to 0 and hands its text over.
struct ledger_verdict {
  std::uint32_t accept = 1;
  std::unique_ptr<char[]> text;
};

// 0 accepts. Called before anything of the commit is stored.
using ledger_verify_fn = int (*)(const ledger_change& change, ledger_verdict& verdict);
// Called after the commit is stored. Its error does not undo the commit.
using ledger_apply_fn = int (*)(const ledger_change& change);

// The change whose apply function runs now, or null. Main thread.
const ledger_change* ledger_change_under_way() noexcept;

// For rows that have nothing to do when their item changes.
int ledger_nothing_to_apply(const ledger_change& change) noexcept;

// Called while a commit of several stages is verified, for a change of an accepted stage: from here
// on verifiers see what it will lead to. 0, or a code that refuses the change.
using ledger_expect_fn = int (*)(const ledger_change& change);

// The items of one owner (what the first name of a path stands for: a track) are replayed turn by
// turn, whatever the order in which they were committed; those of one turn in the order of their
// last change.
enum class ledger_turn : std::uint32_t {
  owner,  // says that the owner exists; a delete takes all its other items out of the store
  first,
  usual,
  late,
  last,
};

// Flag bits of a row.
inline constexpr std::uint32_t ledger_row_handled = 1;  // the row has verify and apply
inline constexpr std::uint32_t ledger_row_text = 2;     // the value is a text
inline constexpr std::uint32_t ledger_row_tuple = 4;    // the value is a packed tuple; else a u32

// A handled row without a verify or an apply function is one that this build does not have: every
// change of it is refused with ledger_not_available.
struct ledger_registration {
  const char* path;  // below the root, for people and logs
  std::uint32_t flags;
  ledger_verify_fn verify;
  ledger_apply_fn apply;
  ledger_turn turn = ledger_turn::usual;
  std::uint32_t length = 0;  // the most characters of a text, the numbers of a tuple; 0: any
  ledger_expect_fn expect = nullptr;
};

// Registers a tree under `root`, which ends in '/'. The tables are kept by reference and must live
// as long as the process. `forget` ends what the rows' `expect` functions began; null when there
// are none. The stored configuration is not applied by this call. Status code; 22 when the tables
// do not fit together.
int ledger_config_register(const char* root, std::span<const ledger_tree_node> nodes,
                           std::span<const ledger_registration> rows,
                           void (*forget)() noexcept = nullptr) noexcept;

// Applies the stored configuration below `root` as create events, without verification: owners in
// the order in which they were first committed, within one its items as ledger_turn says. An item
// that cannot be applied, whose path or value the tree does not take, or that is missing in the
// store is logged with its path and skipped. Returns the number of items skipped, or a negative
// number when the store could not be read.
int ledger_config_replay(const char* root);

}  // namespace ot
