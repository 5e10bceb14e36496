// One change of a commit on its way from proposal to applied configuration.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "platform/ledger/engine/tree.h"
#include "platform/ledger_commit.h"

namespace ot {

struct ledger_planned_change {
  const ledger_proposal* proposal = nullptr;
  ledger_match match;
  ledger_change change;
  ledger_value old_value;
  ledger_value new_value;
  // Other items that go: all those of an owner that is deleted, the retired ones when an item of a
  // late turn is set.
  std::vector<std::string> leftovers;
  std::string retired;  // where an item goes on that stays in force; empty: nowhere

  [[nodiscard]] std::string_view owner() const noexcept {
    return std::string_view{proposal->path}.substr(0, match.owner);
  }
  // Deletes come first, that of an owner behind those of its items: none of them can bring it back.
  [[nodiscard]] int place() const noexcept {
    return proposal->remove ? (deletes_owner() ? 1 : 0) : 2;
  }
  [[nodiscard]] bool is_late() const noexcept { return match.row->turn == ledger_turn::late; }
  [[nodiscard]] bool sets_late() const noexcept { return is_late() && !proposal->remove; }
  [[nodiscard]] bool deletes_owner() const noexcept {
    return proposal->remove && match.row->turn == ledger_turn::owner;
  }
  // An item that is set to the value it has does not change its place in the replay. Where only the
  // last of several items is in force, to set it is a change all the same.
  [[nodiscard]] bool changes_nothing() const noexcept {
    const auto before = old_value.bytes();
    return change.event == ledger_event_set && !is_late() && old_value.kind == proposal->kind &&
           std::equal(before.begin(), before.end(), proposal->value.begin(), proposal->value.end());
  }
};

}  // namespace ot
