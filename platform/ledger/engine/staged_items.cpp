#include "platform/ledger/engine/staged_items.h"

#include "platform/ledger/item.h"
#include "platform/ledger_status.h"

namespace ot {

void ledger_staged_items::add(const ledger_proposal& accepted) {
  changed_.insert_or_assign(accepted.path, accepted.remove ? nullptr : &accepted);
}

void ledger_staged_items::remove(std::string_view path) {
  changed_.insert_or_assign(std::string{path}, nullptr);
}

void ledger_staged_items::keep(std::string_view path, const ledger_proposal& accepted) {
  changed_.insert_or_assign(std::string{path}, &accepted);
}

int ledger_staged_items::get(std::string_view path, ledger_value& ret) {
  const auto changed = changed_.find(path);
  if (changed == changed_.end()) {
    return store_.get(path, ret);
  }
  const ledger_proposal* item = changed->second;
  return item == nullptr ? ledger_no_data : ledger_value_assign(ret, item->kind, item->value);
}

int ledger_staged_items::below(std::string_view prefix, std::vector<std::string>& ret) {
  constexpr std::size_t page_items = 128;
  std::string after;
  for (bool more = true; more;) {
    std::vector<ledger_stored> page;
    if (const int status = store_.page(prefix, after, page_items, page); status != status_ok) {
      return status;
    }
    for (const ledger_stored& item : page) {
      if (!changed_.contains(item.path)) {
        ret.push_back(item.path);
      }
    }
    more = page.size() == page_items;
    after = more ? page.back().path : std::string{};
  }
  for (auto at = changed_.lower_bound(prefix);
       at != changed_.end() && at->first.starts_with(prefix); ++at) {
    if (at->second != nullptr) {
      ret.push_back(at->first);
    }
  }
  return status_ok;
}

}  // namespace ot
