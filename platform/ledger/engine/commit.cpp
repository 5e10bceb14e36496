// The engine's way with configuration: commits, and the replay of what is stored when the service
// starts. Neither runs inside the other, nor inside itself: a verify or apply function that tried
// would change the configuration under the commit that called it.
//
// A commit has four steps: plan every change against the trees and the store, verify all of them,
// store all of them, apply one after the other. The first two find every fault before they refuse,
// so that an operator sees all of them at once. Verifiers look at the state before the commit.
#include "platform/ledger/engine/engine.h"

#include <algorithm>
#include <new>
#include <span>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "platform/err_string.h"
#include "platform/ledger/item.h"
#include "platform/ledger_commit.h"
#include "platform/ledger_status.h"

namespace ot {
namespace {

constexpr std::size_t commit_max = 8192;  // changes
constexpr std::size_t replay_items = 64;  // read at a time

void refuse(std::vector<ledger_refusal>& refusals, const std::string& path, int code,
            std::string_view detail) {
  std::string text = err_string(code);
  text.append(": ").append(path);
  if (!detail.empty()) {
    text.append(" (").append(detail).append(")");
  }
  refusals.push_back({.path = path, .code = code, .text = std::move(text)});
}

const char* kind_text(ledger_kind kind) noexcept {
  switch (kind) {
    case ledger_kind::u32:
      return "it is a number";
    case ledger_kind::text:
      return "it is a text";
    case ledger_kind::tuple:
      return "it is a tuple";
    case ledger_kind::record:
      break;
  }
  return "it is a record";
}

bool is_handled(const ledger_registration& row) noexcept {
  return (row.flags & ledger_row_handled) != 0;
}

bool is_available(const ledger_registration& row) noexcept {
  return !is_handled(row) || (row.verify != nullptr && row.apply != nullptr);
}

// What is wrong with the proposed value, or null.
const char* value_fault(const ledger_proposal& proposal, ledger_kind wanted) noexcept {
  if (proposal.kind != wanted) {
    return kind_text(wanted);
  }
  return ledger_value_fault(wanted, proposal.value);
}

// Runs the row's apply function, if it has something to run.
int apply_change(ledger_environment& environment, const ledger_registration& row,
                 const ledger_change& change) {
  if (!is_handled(row)) {
    return status_ok;
  }
  if (!is_available(row)) {
    return ledger_not_available;
  }
  return ledger_in_service(environment, [&] { return row.apply(change); });
}

// One commit on its way from proposal to applied configuration.
class commit_run {
 public:
  commit_run(const ledger_trees& trees, ledger_store& store,
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

// The event follows from what is stored, whatever the client believes.
int commit_run::decide(planned& item) {
  const ledger_proposal& proposal = *item.proposal;
  const int status = store_.get(proposal.path, item.old_value);
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

void commit_run::plan(const ledger_proposal& proposal, std::vector<ledger_refusal>& refusals) {
  planned item;
  item.proposal = &proposal;
  if (const int status = trees_.match(proposal.path, item.match); status != status_ok) {
    refuse(refusals, proposal.path, status, "");
    return;
  }
  const ledger_registration& row = *item.match.row;
  if (!is_available(row)) {
    refuse(refusals, proposal.path, ledger_not_available, row.path);
    return;
  }
  const char* fault = proposal.remove ? nullptr : value_fault(proposal, ledger_row_kind(row));
  if (fault != nullptr) {
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

void commit_run::verify(const planned& item, std::vector<ledger_refusal>& refusals) {
  const ledger_registration& row = *item.match.row;
  if (!is_handled(row)) {
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

bool commit_run::prepare(std::span<const ledger_proposal> changes,
                         std::vector<ledger_refusal>& refusals) {
  if (changes.size() > commit_max) {
    refuse(refusals, changes[commit_max].path, invalid_argument, "too many changes");
    return false;
  }
  items_.reserve(changes.size());
  std::unordered_set<std::string_view> seen;
  for (const ledger_proposal& proposal : changes) {
    if (seen.insert(proposal.path).second) {
      plan(proposal, refusals);
    } else {
      refuse(refusals, proposal.path, duplicate_key, "twice in one commit");
    }
  }
  if (!refusals.empty()) {
    return false;
  }
  for (planned& item : items_) {
    item.change.fields = item.match.fields;
    item.change.old_value = item.change.event == ledger_event_create ? nullptr : &item.old_value;
    item.change.new_value = item.proposal->remove ? nullptr : &item.new_value;
    order_.push_back(&item);
  }
  std::stable_partition(order_.begin(), order_.end(),
                        [](const planned* item) { return item->proposal->remove; });
  for (const planned& item : items_) {
    verify(item, refusals);
  }
  return refusals.empty();
}

int commit_run::store() {
  std::vector<ledger_write> writes;
  writes.reserve(order_.size());
  for (const planned* item : order_) {
    writes.push_back({.path = item->proposal->path,
                      .remove = item->proposal->remove,
                      .kind = item->proposal->kind,
                      .value = item->proposal->value});
  }
  return store_.write(writes);
}

void commit_run::apply(std::vector<ledger_refusal>& refusals) {
  for (const planned* item : order_) {
    const int code = apply_change(environment_, *item->match.row, item->change);
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

class busy_scope {
 public:
  explicit busy_scope(bool& busy) noexcept : busy_(busy) { busy_ = true; }
  ~busy_scope() { busy_ = false; }
  busy_scope(const busy_scope&) = delete;
  busy_scope& operator=(const busy_scope&) = delete;

 private:
  bool& busy_;
};

}  // namespace

int ledger_nothing_to_apply(const ledger_change& /*change*/) noexcept {
  return status_ok;
}

int ledger_engine::commit(std::span<const ledger_proposal> changes,
                          std::vector<ledger_refusal>& ret) {
  if (busy_) {
    return ledger_not_available;
  }
  const busy_scope busy{busy_};
  commit_run run{trees_, configuration_, environment_};
  if (!run.prepare(changes, ret)) {
    return ret.front().code;
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

int ledger_engine::replay_item(const ledger_stored& item) {
  ledger_match match;
  if (const int status = trees_.match(item.path, match); status != status_ok) {
    return status;
  }
  const ledger_change change{
      .event = ledger_event_create, .fields = match.fields, .new_value = &item.value};
  return apply_change(environment_, *match.row, change);
}

int ledger_engine::replay(std::string_view root) {
  if (busy_) {
    return -1;
  }
  const busy_scope busy{busy_};
  int failures = 0;
  std::uint64_t after = 0;
  for (;;) {
    std::vector<ledger_stored> items;
    if (configuration_.page_in_order(after, replay_items, items) != status_ok) {
      return -1;
    }
    for (const ledger_stored& item : items) {
      after = item.sequence;
      const int status = item.path.starts_with(root) ? replay_item(item) : status_ok;
      if (status != status_ok) {
        environment_.log("replaying " + item.path + " failed: " + err_string(status));
        ++failures;
      }
    }
    if (items.size() < replay_items) {
      return failures;
    }
  }
}

}  // namespace ot
