// What a commit's changes are: which items they meet, what events they make, in which order they
// come, and what goes along with them.
#include <algorithm>
#include <string>

#include "platform/err_string.h"
#include "platform/ledger/engine/commit.h"
#include "platform/ledger/engine/handling.h"
#include "platform/ledger_status.h"

namespace ot {

void ledger_refuse(std::vector<ledger_refusal>& refusals, const std::string& path, int code,
                   std::string_view detail) {
  std::string text = err_string(code);
  text.append(": ").append(path);
  if (!detail.empty()) {
    text.append(" (").append(detail).append(")");
  }
  refusals.push_back({.path = path, .code = code, .text = std::move(text)});
}

bool ledger_commit_run::takes_new_items() {
  if (!takes_new_items_) {
    takes_new_items_ = store_.takes_new_items();
  }
  return *takes_new_items_;
}

// The event follows from what is stored, whatever the client believes.
int ledger_commit_run::decide(ledger_planned_change& item) {
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
  if (!present && !takes_new_items()) {
    return ledger_full;
  }
  return ledger_value_assign(item.new_value, proposal.kind, proposal.value);
}

void ledger_commit_run::plan(const ledger_proposal& proposal, refusals& ret) {
  ledger_planned_change item;
  item.proposal = &proposal;
  std::string fault;
  if (const int status = trees_.match(proposal.path, item.match, fault); status != status_ok) {
    ledger_refuse(ret, proposal.path, status, fault);
    return;
  }
  const ledger_registration& row = *item.match.row;
  if (!ledger_row_is_available(row)) {
    ledger_refuse(ret, proposal.path, ledger_not_available, row.path);
    return;
  }
  if (!proposal.remove) {
    fault = ledger_row_value_fault(row, proposal.kind, proposal.value);
  }
  if (!fault.empty()) {
    ledger_refuse(ret, proposal.path, ledger_wrong_kind, fault);
    return;
  }
  if (const int status = decide(item); status != status_ok) {
    ledger_refuse(ret, proposal.path, status,
                  status == ledger_full ? "new items are no longer taken, deletes are" : "");
    return;
  }
  items_.push_back(std::move(item));
}

void ledger_commit_run::plan_stage(proposals stage, refusals& ret) {
  paths seen;
  for (const ledger_proposal& proposal : stage) {
    if (seen.insert(proposal.path).second) {
      plan(proposal, ret);
    } else {
      ledger_refuse(ret, proposal.path, duplicate_key, "twice in one stage of a commit");
    }
  }
  if (!ret.empty()) {
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
  complete_stage(ret);
}

int ledger_commit_run::collect_below(std::string_view prefix, ledger_planned_change& item) {
  std::string owner{prefix};
  owner.append(item.owner()).append("/");
  return staged_.below(owner, item.leftovers);
}

int ledger_commit_run::collect_leftovers(ledger_planned_change& item, const paths& deleted) {
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
void ledger_commit_run::complete_stage(refusals& ret) {
  paths deleted;
  paths owners;
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
        ledger_refuse(ret, item.proposal->path, status, "");
      }
    }
    if (item.is_late() && item.proposal->remove && owner_stays) {
      item.retired = std::string{ledger_retired_root} + item.proposal->path;
    }
  }
}

}  // namespace ot
