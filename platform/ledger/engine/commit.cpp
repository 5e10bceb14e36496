// The engine's way with configuration that changes. A commit has four steps: plan every change
// against the trees and the store, verify all of them, store all of them, apply one after the
// other. The first two find every fault before they refuse, so that an operator sees all of them at
// once. Verifiers look at the state before the commit; those of a later stage are made to expect
// what the stages before it will lead to, since nothing is applied before the whole commit is
// accepted: what is refused has never happened.
//
// Neither a commit nor the replay runs inside the other, nor inside itself: a verify or apply
// function that tried would change the configuration under the commit that called it.
#include <algorithm>
#include <new>
#include <span>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "platform/err_string.h"
#include "platform/ledger/engine/engine.h"
#include "platform/ledger/engine/handling.h"
#include "platform/ledger/engine/planned_change.h"
#include "platform/ledger/engine/staged_items.h"
#include "platform/ledger/item.h"
#include "platform/ledger_commit.h"
#include "platform/ledger_status.h"

namespace ot {
namespace {

constexpr std::size_t commit_max = 8192;  // changes

using refusal_list = std::vector<ledger_refusal>;
using proposal_span = std::span<const ledger_proposal>;
using path_set = std::unordered_set<std::string_view>;

void refuse(refusal_list& refusals, const std::string& path, int code, std::string_view detail) {
  std::string text = err_string(code);
  text.append(": ").append(path);
  if (!detail.empty()) {
    text.append(" (").append(detail).append(")");
  }
  refusals.push_back({.path = path, .code = code, .text = std::move(text)});
}

class commit_run {
 public:
  commit_run(const ledger_trees& trees, ledger_store& store,
             ledger_environment& environment) noexcept
      : trees_(trees), store_(store), environment_(environment), staged_(store) {}
  ~commit_run() { trees_.forget_expected(); }
  commit_run(const commit_run&) = delete;
  commit_run& operator=(const commit_run&) = delete;

  // Checks and verifies; true when the commit may be stored. Otherwise `refusals` says why not.
  bool prepare(proposal_span changes, refusal_list& refusals);
  // Stores what was prepared; 0 or a status code.
  int store();
  // Applies what was stored. Never throws for lack of memory.
  void apply(refusal_list& refusals);

  // What readers see meanwhile.
  [[nodiscard]] ledger_staged_items& staged() noexcept { return staged_; }

 private:
  // Each appends what it finds wrong.
  void plan_stage(proposal_span stage, refusal_list& refusals);
  void plan(const ledger_proposal& proposal, refusal_list& refusals);
  void complete_stage(refusal_list& refusals);
  int collect_leftovers(ledger_planned_change& item, const path_set& deleted);
  int collect_below(std::string_view prefix, ledger_planned_change& item);
  void verify_stage(refusal_list& refusals);
  void verify(const ledger_planned_change& item, refusal_list& refusals);
  void expect_stage(refusal_list& refusals);
  int decide(ledger_planned_change& item);

  const ledger_trees& trees_;
  ledger_store& store_;
  ledger_environment& environment_;
  ledger_staged_items staged_;
  std::vector<ledger_planned_change> items_;   // in the client's order
  std::vector<ledger_planned_change*> order_;  // in the order of storing and applying
  std::size_t stage_ = 0;                      // where the present stage begins in both
};

// The event follows from what is stored, whatever the client believes.
int commit_run::decide(ledger_planned_change& item) {
  const ledger_proposal& proposal = *item.proposal;
  const int status = staged_.get(proposal.path, item.old_value);
  if (status != status_ok && status != ledger_no_data) {
    return status;
  }
  const bool present = status == status_ok;
  if (proposal.remove) {
    item.change.event = ledger_event_delete;
    return status;
  }
  item.change.event = present ? ledger_event_set : ledger_event_create;
  if (!present && !store_.takes_new_items()) {
    return ledger_full;
  }
  return ledger_value_assign(item.new_value, proposal.kind, proposal.value);
}

void commit_run::plan(const ledger_proposal& proposal, refusal_list& refusals) {
  ledger_planned_change item;
  item.proposal = &proposal;
  std::string fault;
  if (const int status = trees_.match(proposal.path, item.match, fault); status != status_ok) {
    refuse(refusals, proposal.path, status, fault);
    return;
  }
  const ledger_registration& row = *item.match.row;
  if (!ledger_row_is_available(row)) {
    refuse(refusals, proposal.path, ledger_not_available, row.path);
    return;
  }
  if (!proposal.remove) {
    fault = ledger_row_value_fault(row, proposal.kind, proposal.value);
  }
  if (!fault.empty()) {
    refuse(refusals, proposal.path, ledger_wrong_kind, fault);
    return;
  }
  if (const int status = decide(item); status != status_ok) {
    refuse(refusals, proposal.path, status,
           status == ledger_full ? "new items are no longer taken, deletes are" : "");
    return;
  }
  items_.push_back(std::move(item));
}

void commit_run::plan_stage(proposal_span stage, refusal_list& refusals) {
  path_set seen;
  for (const ledger_proposal& proposal : stage) {
    if (seen.insert(proposal.path).second) {
      plan(proposal, refusals);
    } else {
      refuse(refusals, proposal.path, duplicate_key, "twice in one stage of a commit");
    }
  }
  if (!refusals.empty()) {
    return;
  }
  for (std::size_t index = stage_; index < items_.size(); ++index) {
    ledger_planned_change& item = items_[index];
    item.change.fields = item.match.fields;
    item.change.old_value = item.change.event == ledger_event_create ? nullptr : &item.old_value;
    item.change.new_value = item.proposal->remove ? nullptr : &item.new_value;
    order_.push_back(&item);
  }
  std::stable_sort(order_.begin() + static_cast<std::ptrdiff_t>(stage_), order_.end(),
                   [](const ledger_planned_change* a, const ledger_planned_change* b) {
                     return a->place() < b->place();
                   });
  complete_stage(refusals);
}

int commit_run::collect_below(std::string_view prefix, ledger_planned_change& item) {
  std::string owner{prefix};
  owner.append(item.owner()).append("/");
  return staged_.below(owner, item.leftovers);
}

int commit_run::collect_leftovers(ledger_planned_change& item, const path_set& deleted) {
  int status = status_ok;
  if (item.deletes_owner()) {
    status = collect_below("", item);
  }
  if (status == status_ok && (item.deletes_owner() || item.sets_late())) {
    status = collect_below(ledger_retired_root, item);
  }
  std::erase_if(item.leftovers,
                [&deleted](const std::string& path) { return deleted.contains(path); });
  return status;
}

// What goes along with the changes, beyond what the stage deletes itself.
void commit_run::complete_stage(refusal_list& refusals) {
  path_set deleted;
  path_set owners;
  const std::span stage{items_.begin() + static_cast<std::ptrdiff_t>(stage_), items_.end()};
  for (const ledger_planned_change& item : stage) {
    if (item.proposal->remove) {
      deleted.insert(item.proposal->path);
    }
    if (item.deletes_owner()) {
      owners.insert(item.owner());
    }
  }
  for (ledger_planned_change& item : stage) {
    const bool owner_stays = !owners.contains(item.owner());
    if (item.deletes_owner() || (item.sets_late() && owner_stays)) {
      owners.insert(item.owner());  // once for all of its items
      if (const int status = collect_leftovers(item, deleted); status != status_ok) {
        refuse(refusals, item.proposal->path, status, "");
      }
    }
    if (item.is_late() && item.proposal->remove && owner_stays) {
      item.retired = std::string{ledger_retired_root} + item.proposal->path;
    }
  }
}

void commit_run::verify(const ledger_planned_change& item, refusal_list& refusals) {
  const ledger_registration& row = *item.match.row;
  if (!ledger_row_is_handled(row)) {
    return;
  }
  ledger_verdict verdict;
  int code = ledger_in_service(environment_, [&] { return row.verify(item.change, verdict); });
  if (code == status_ok && verdict.accept != 0) {
    return;
  }
  code = code == status_ok ? invalid_argument : code;
  refusals.push_back({.path = item.proposal->path,
                      .code = code,
                      .text = verdict.text ? verdict.text.get() : err_string(code)});
}

void commit_run::verify_stage(refusal_list& refusals) {
  for (std::size_t index = stage_; index < items_.size(); ++index) {
    verify(items_[index], refusals);
  }
}

// From here on the present stage counts as made.
void commit_run::expect_stage(refusal_list& refusals) {
  for (; stage_ < order_.size(); ++stage_) {
    const ledger_planned_change& item = *order_[stage_];
    const ledger_registration& row = *item.match.row;
    const int code = row.expect == nullptr
                         ? status_ok
                         : ledger_in_service(environment_, [&] { return row.expect(item.change); });
    if (code != status_ok) {
      refuse(refusals, item.proposal->path, code, "");
    }
    for (const std::string& path : item.leftovers) {
      staged_.remove(path);
    }
    staged_.add(*item.proposal);
    if (!item.retired.empty()) {
      staged_.keep(item.retired, *item.proposal);
    }
  }
}

bool commit_run::prepare(proposal_span changes, refusal_list& refusals) {
  if (changes.size() > commit_max) {
    refuse(refusals, changes[commit_max].path, invalid_argument,
           "a commit has at most " + std::to_string(commit_max) + " changes");
    return false;
  }
  items_.reserve(changes.size());  // they are pointed to
  for (proposal_span rest = changes; !rest.empty() && refusals.empty();) {
    const auto end = std::find_if(rest.begin(), rest.end(), [&rest](const ledger_proposal& next) {
      return next.stage != rest.front().stage;
    });
    const auto size = static_cast<std::size_t>(end - rest.begin());
    if (end != rest.end() && end->stage < rest.front().stage) {
      refuse(refusals, end->path, invalid_argument, "its stage is over");
      break;
    }
    plan_stage(rest.first(size), refusals);
    if (refusals.empty()) {
      verify_stage(refusals);
    }
    rest = rest.subspan(size);
    if (!rest.empty() && refusals.empty()) {
      expect_stage(refusals);
    }
  }
  return refusals.empty();
}

int commit_run::store() {
  std::vector<ledger_write> writes;
  writes.reserve(order_.size());
  for (const ledger_planned_change* item : order_) {
    for (const std::string& path : item->leftovers) {
      writes.push_back({.path = path, .remove = true});
    }
    if (!item->changes_nothing()) {
      writes.push_back({.path = item->proposal->path,
                        .remove = item->proposal->remove,
                        .move_to = item->retired,
                        .kind = item->proposal->kind,
                        .value = item->proposal->value,
                        .owner = item->match.owner});
    }
  }
  return writes.empty() ? status_ok : store_.write(writes);
}

void commit_run::apply(refusal_list& refusals) {
  for (const ledger_planned_change* item : order_) {
    const int code = ledger_row_apply(environment_, *item->match.row, item->change);
    if (code == status_ok) {
      continue;
    }
    try {
      const std::string& path = item->proposal->path;
      environment_.log("applying " + path + " failed: " + err_string(code));
      refusals.push_back({.path = path, .code = code, .text = err_string(code), .applied = true});
    } catch (const std::bad_alloc&) {
      // The item is stored and the others still have to be applied; only its report is lost.
    }
  }
}

}  // namespace

int ledger_nothing_to_apply(const ledger_change& /*change*/) noexcept {
  return status_ok;
}

int ledger_engine::commit(std::span<const ledger_proposal> changes,
                          std::vector<ledger_refusal>& ret) {
  if (busy_) {
    return ledger_not_available;
  }
  const ledger_while_set busy{busy_, true};
  commit_run run{trees_, configuration_, environment_};
  {
    const ledger_while_set seen{staged_, &run.staged()};
    if (!run.prepare(changes, ret)) {
      return ret.front().code;
    }
  }
  if (changes.empty()) {
    return status_ok;
  }
  if (const int status = run.store(); status != status_ok) {
    ret.push_back({.path = changes.front().path, .code = status, .text = err_string(status)});
    return status;
  }
  ++generation_;
  run.apply(ret);
  return ret.empty() ? status_ok : ret.front().code;
}

}  // namespace ot
