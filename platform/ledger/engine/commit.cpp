// The engine's way with configuration that changes. A commit has four steps: plan every change
// against the trees and the store (commit_plan.cpp), verify all of them, store all of them, apply
// one after the other. The first two find every fault before they refuse, so that an operator sees
// all of them at once. Verifiers look at the state before the commit; those of a later stage are
// made to expect what the stages before it will lead to, since nothing is applied before the whole
// commit is accepted: what is refused has never happened.
//
// To make it durable takes as long as the disk likes, so a host may do that beside its loop. What
// happens meanwhile finds the configuration as it was; nobody else changes it.
//
// Neither a commit nor the replay runs inside the other, nor inside itself: a verify or apply
// function that tried would change the configuration under the commit that called it.
#include "platform/ledger/engine/commit.h"

#include <algorithm>
#include <memory>
#include <new>
#include <utility>

#include "platform/err_string.h"
#include "platform/ledger/engine/engine.h"
#include "platform/ledger/engine/handling.h"
#include "platform/ledger_status.h"

namespace ot {

ledger_commit_run::ledger_commit_run(const ledger_trees& trees, ledger_store& store,
                                     ledger_environment& environment, bool& busy,
                                     std::vector<ledger_proposal> changes)
    : trees_(trees),
      store_(store),
      environment_(environment),
      busy_(busy),
      staged_(store),
      changes_(std::move(changes)) {
  busy_ = true;
}

void ledger_commit_run::verify(const ledger_planned_change& item, refusals& ret) {
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
  ret.push_back({.path = item.proposal->path,
                 .code = code,
                 .text = verdict.text ? verdict.text.get() : err_string(code)});
}

void ledger_commit_run::verify_stage(refusals& ret) {
  for (std::size_t index = stage_; index < items_.size(); ++index) {
    verify(items_[index], ret);
  }
}

// From here on the present stage counts as made.
void ledger_commit_run::expect_stage(refusals& ret) {
  for (; stage_ < order_.size(); ++stage_) {
    const ledger_planned_change& item = *order_[stage_];
    const ledger_registration& row = *item.match.row;
    const int code = row.expect == nullptr
                         ? status_ok
                         : ledger_in_service(environment_, [&] { return row.expect(item.change); });
    if (code != status_ok) {
      ledger_refuse(ret, item.proposal->path, code, "");
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

void ledger_commit_run::prepare_stages(refusals& ret) {
  for (proposals rest = changes_; !rest.empty() && ret.empty();) {
    const auto end = std::find_if(rest.begin(), rest.end(), [&rest](const ledger_proposal& next) {
      return next.stage != rest.front().stage;
    });
    const auto size = static_cast<std::size_t>(end - rest.begin());
    if (end != rest.end() && end->stage < rest.front().stage) {
      ledger_refuse(ret, end->path, invalid_argument, "its stage is over");
      return;
    }
    plan_stage(rest.first(size), ret);
    if (ret.empty()) {
      verify_stage(ret);
    }
    rest = rest.subspan(size);
    if (!rest.empty() && ret.empty()) {
      expect_stage(ret);
    }
  }
}

bool ledger_commit_run::prepare(refusals& ret) {
  if (changes_.size() > ledger_commit_max) {
    ledger_refuse(ret, changes_[ledger_commit_max].path, invalid_argument,
                  "a commit has at most " + std::to_string(ledger_commit_max) + " changes");
    return false;
  }
  items_.reserve(changes_.size());  // they are pointed to
  const auto forget = [](const ledger_trees* trees) { trees->forget_expected(); };
  const std::unique_ptr<const ledger_trees, decltype(forget)> decided{&trees_, forget};
  prepare_stages(ret);
  if (ret.empty()) {
    collect_writes();
  }
  return ret.empty();
}

void ledger_commit_run::collect_writes() {
  writes_.reserve(order_.size());
  for (const ledger_planned_change* item : order_) {
    for (const std::string& path : item->leftovers) {
      writes_.push_back({.path = path, .remove = true});
    }
    if (!item->changes_nothing()) {
      writes_.push_back({.path = item->proposal->path,
                         .remove = item->proposal->remove,
                         .move_to = item->retired,
                         .kind = item->proposal->kind,
                         .value = item->proposal->value,
                         .owner = item->match.owner});
    }
  }
}

int ledger_commit_run::store() noexcept {
  try {
    return writes_.empty() ? status_ok : store_.write(writes_);
  } catch (const std::bad_alloc&) {
    return no_memory;
  }
}

void ledger_commit_run::apply(refusals& ret) {
  for (const ledger_planned_change* item : order_) {
    const int code = ledger_row_apply(environment_, *item->match.row, item->change);
    if (code == status_ok) {
      continue;
    }
    try {
      const std::string& path = item->proposal->path;
      environment_.log("applying " + path + " failed: " + err_string(code));
      ret.push_back({.path = path, .code = code, .text = err_string(code), .applied = true});
    } catch (const std::bad_alloc&) {
      // The item is stored and the others still have to be applied; only its report is lost.
    }
  }
}

int ledger_nothing_to_apply(const ledger_change& /*change*/) noexcept {
  return status_ok;
}

// --- The engine's side ---------------------------------------------------------------------------

int ledger_engine::begin_commit(std::vector<ledger_proposal> changes, std::uint64_t generation,
                                std::vector<ledger_refusal>& ret,
                                std::unique_ptr<ledger_commit_run>& ret_run) {
  if (busy_) {
    return ledger_not_available;
  }
  if (generation != 0 && generation != ledger_engine::generation()) {
    return ledger_changed;
  }
  auto run = std::make_unique<ledger_commit_run>(trees_, configuration_, environment_, busy_,
                                                 std::move(changes));
  const ledger_while_set seen{staged_, &run->staged()};
  if (!run->prepare(ret)) {
    return ret.front().code;
  }
  ret_run = run->is_empty() ? nullptr : std::move(run);
  return status_ok;
}

int ledger_engine::finish_commit(std::unique_ptr<ledger_commit_run> run, int stored,
                                 std::vector<ledger_refusal>& ret) {
  if (stored != status_ok) {
    ret.push_back({.path = run->first_path(), .code = stored, .text = err_string(stored)});
    return stored;
  }
  run->apply(ret);
  return ret.empty() ? status_ok : ret.front().code;
}

int ledger_engine::commit(std::span<const ledger_proposal> changes, std::uint64_t generation,
                          std::vector<ledger_refusal>& ret) {
  std::unique_ptr<ledger_commit_run> run;
  const int status = begin_commit({changes.begin(), changes.end()}, generation, ret, run);
  if (run == nullptr) {
    return status;
  }
  const int stored = run->store();
  return finish_commit(std::move(run), stored, ret);
}

}  // namespace ot
