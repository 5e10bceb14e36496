// A commit on its way. It is planned and verified, then stored, then applied; what is stored is
// stored by whatever thread the host likes, while the main thread goes on with everything but other
// commits. All else is the main thread's.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "platform/ledger/engine/environment.h"
#include "platform/ledger/engine/planned_change.h"
#include "platform/ledger/engine/staged_items.h"
#include "platform/ledger/engine/tree.h"
#include "platform/ledger_commit.h"

namespace ot {

class ledger_commit_run {
 public:
  using refusals = std::vector<ledger_refusal>;

  // `busy` is true for as long as this lives. What is handed in outlives it.
  ledger_commit_run(const ledger_trees& trees, ledger_store& store, ledger_environment& environment,
                    bool& busy, std::vector<ledger_proposal> changes);
  ~ledger_commit_run() { busy_ = false; }
  ledger_commit_run(const ledger_commit_run&) = delete;
  ledger_commit_run& operator=(const ledger_commit_run&) = delete;

  // Checks and verifies; true when the commit may be stored. Otherwise `ret` says why not. May
  // throw bad_alloc.
  bool prepare(refusals& ret);
  // What verifiers see meanwhile.
  [[nodiscard]] ledger_staged_items& staged() noexcept { return staged_; }

  // Stores what was prepared; 0 or a status code. Any thread.
  int store() noexcept;

  // Applies what was stored. Never throws for lack of memory.
  void apply(refusals& ret);

  [[nodiscard]] bool is_empty() const noexcept { return changes_.empty(); }
  [[nodiscard]] const std::string& first_path() const noexcept { return changes_.front().path; }

 private:
  using proposals = std::span<const ledger_proposal>;
  using paths = std::unordered_set<std::string_view>;

  // Each appends what it finds wrong.
  void prepare_stages(refusals& ret);
  void plan_stage(proposals stage, refusals& ret);
  void plan(const ledger_proposal& proposal, refusals& ret);
  int decide(ledger_planned_change& item);
  bool takes_new_items();
  void complete_stage(refusals& ret);
  int collect_leftovers(ledger_planned_change& item, const paths& deleted);
  int collect_below(std::string_view prefix, ledger_planned_change& item);
  void verify_stage(refusals& ret);
  void verify(const ledger_planned_change& item, refusals& ret);
  void expect_stage(refusals& ret);
  void collect_writes();

  const ledger_trees& trees_;
  ledger_store& store_;
  ledger_environment& environment_;
  bool& busy_;
  ledger_staged_items staged_;
  std::vector<ledger_proposal> changes_;       // pointed to by the items
  std::vector<ledger_planned_change> items_;   // in the client's order
  std::vector<ledger_planned_change*> order_;  // in the order of storing and applying
  std::vector<ledger_write> writes_;           // what to store
  std::size_t stage_ = 0;                      // where the present stage begins in both
  std::optional<bool> takes_new_items_;        // asked for once
};

// Adds a refusal of the engine's own: the code's text, the path and what is wrong there.
void ledger_refuse(std::vector<ledger_refusal>& refusals, const std::string& path, int code,
                   std::string_view detail);

}  // namespace ot
