// One commit on its way from proposal to applied configuration.
#pragma once

#include <span>
#include <string_view>
#include <vector>

#include "platform/ledger/engine/environment.h"
#include "platform/ledger/engine/store.h"
#include "platform/ledger/engine/tree.h"
#include "platform/ledger_commit.h"

namespace ot {

inline constexpr std::size_t ledger_commit_max = 8192;  // changes

class ledger_commit_run {
 public:
  ledger_commit_run(const ledger_trees& trees, ledger_store& store,
                    ledger_environment& environment) noexcept
      : trees_(trees), store_(store), environment_(environment) {}

  // Checks and verifies; true when the commit may be stored. Otherwise `refusals` says why not.
  bool prepare(std::span<const ledger_proposal> changes, std::vector<ledger_refusal>& refusals);
  // Stores what was prepared; 0 or a status code.
  int store();
  // Applies what was stored. Never throws for lack of memory.
  void apply(std::vector<ledger_refusal>& refusals);

 private:
  struct planned {
    const ledger_proposal* proposal = nullptr;
    ledger_match match;
    ledger_change change;
    ledger_value old_value;
    ledger_value new_value;
  };

  // Each appends what it finds wrong.
  void plan(const ledger_proposal& proposal, std::vector<ledger_refusal>& refusals);
  int decide(planned& item);
  void verify(const planned& item, std::vector<ledger_refusal>& refusals);

  const ledger_trees& trees_;
  ledger_store& store_;
  ledger_environment& environment_;
  std::vector<planned> items_;   // in the client's order
  std::vector<planned*> order_;  // in the order of storing and applying
};

// Runs the row's apply function, if it has something to run.
int ledger_apply_change(ledger_environment& environment, const ledger_registration& row,
                        const ledger_change& change);

}  // namespace ot
