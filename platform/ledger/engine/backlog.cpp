// A reader that does not keep up costs the service a bounded amount of memory and nobody else
// anything. It loses notices, but it learns that it did.
#include "platform/ledger/engine/backlog.h"

#include <string>
#include <utility>

namespace ot {
namespace {

const std::uint32_t* value_of(const ledger_dpv_notification& entry) noexcept {
  return entry.kind == ledger_notification_delete ? entry.old_value : entry.new_value;
}

}  // namespace

ledger_notices ledger_notices_below(std::string_view followed, std::string_view base,
                                    std::span<const ledger_dpv_notification> entries) {
  ledger_notices notices;
  std::string path;
  for (const ledger_dpv_notification& entry : entries) {
    if (entry.valid == 0 || entry.path == nullptr) {
      continue;
    }
    path.assign(base).append(entry.path);
    if (path.starts_with(followed)) {
      const std::uint32_t* value = value_of(entry);
      notices.push_back({.resync = false,
                         .path = path.substr(followed.size()),
                         .kind = entry.kind,
                         .value = value == nullptr ? 0 : *value});
    }
  }
  return notices;
}

shared_notices ledger_notice_batch::below(const std::string& followed) {
  shared_notices& made = made_[followed];
  if (made == nullptr) {
    made = std::make_shared<const ledger_notices>(ledger_notices_below(followed, base_, entries_));
  }
  return made;
}

void ledger_backlog::push(shared_notices batch) {
  if (batch->empty()) {
    return;
  }
  if (batches_.size() >= max_batches || notices_ + batch->size() > max_notices) {
    batches_.clear();
    notices_ = 0;
    batch = std::make_shared<const ledger_notices>(1, ledger_notice{.resync = true, .path = {}});
  }
  notices_ += batch->size();
  batches_.push_back(std::move(batch));
}

ledger_notices ledger_backlog::pop() {
  if (batches_.empty()) {
    return {};
  }
  const shared_notices batch = std::move(batches_.front());
  batches_.pop_front();
  notices_ -= batch->size();
  return *batch;
}

}  // namespace ot
