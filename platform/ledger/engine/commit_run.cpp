// A commit in four steps: plan every change against the trees and the store, verify all of them,
// store all of them, apply one after the other. The first two find every fault before they refuse,
// so that an operator sees all of them at once. Verifiers look at the state before the commit.
#include "platform/ledger/engine/commit_run.h"

#include <algorithm>
#include <new>
#include <unordered_set>

#include "platform/status.h"

namespace ot {
namespace {

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

}  // namespace

int ledger_nothing_to_apply(const ledger_change& /*change*/) noexcept {
  return status_ok;
}

int ledger_apply_change(ledger_environment& environment, const ledger_registration& row,
                        const ledger_change& change) {
  if (!is_handled(row)) {
    return status_ok;
  }
  if (!is_available(row)) {
    return ledger_not_available;
  }
  return ledger_in_service(environment, [&] { return row.apply(change); });
}

// The event follows from what is stored, whatever the client believes.
int ledger_commit_run::decide(planned& item) {
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

void ledger_commit_run::plan(const ledger_proposal& proposal,
                             std::vector<ledger_refusal>& refusals) {
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

void ledger_commit_run::verify(const planned& item, std::vector<ledger_refusal>& refusals) {
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

bool ledger_commit_run::prepare(std::span<const ledger_proposal> changes,
                                std::vector<ledger_refusal>& refusals) {
  if (changes.size() > ledger_commit_max) {
    refuse(refusals, changes[ledger_commit_max].path, invalid_argument, "too many changes");
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

int ledger_commit_run::store() {
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

void ledger_commit_run::apply(std::vector<ledger_refusal>& refusals) {
  for (const planned* item : order_) {
    const int code = ledger_apply_change(environment_, *item->match.row, item->change);
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

}  // namespace ot
