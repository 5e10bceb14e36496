// Items in a map by path, and their order of creation beside it. The whole of a write is checked
// before the first item changes.
#include "platform/memory/ledger_map_store.h"

#include <new>
#include <utility>

#include "platform/ledger_status.h"

namespace ot {

int ledger_map_store::get(std::string_view path, ledger_value& ret) {
  const auto found = items_.find(path);
  return found == items_.end() ? ledger_no_data
                               : ledger_value_assign(ret, found->second.kind, found->second.value);
}

int ledger_map_store::write(std::span<const ledger_write> writes) {
  if (failure_ != status_ok) {
    return std::exchange(failure_, status_ok);
  }
  for (const ledger_write& change : writes) {
    const bool present = items_.contains(change.path);
    if (!present && (change.remove || !takes_new_items())) {
      return change.remove ? ledger_no_data : ledger_full;
    }
  }
  for (const ledger_write& change : writes) {
    const auto found = items_.find(change.path);
    if (change.remove) {
      order_.erase(found->second.sequence);
      items_.erase(found);
      continue;
    }
    std::vector<std::byte> value{change.value.begin(), change.value.end()};
    if (found != items_.end()) {
      found->second.kind = change.kind;
      found->second.value = std::move(value);
      continue;
    }
    const std::uint64_t sequence = order_.empty() ? 1 : order_.rbegin()->first + 1;
    items_.emplace(change.path, item{change.kind, std::move(value), sequence});
    order_.emplace(sequence, change.path);
  }
  return status_ok;
}

ledger_stored ledger_map_store::copy(const std::string& path, const item& from) {
  ledger_stored stored;
  stored.path = path;
  stored.sequence = from.sequence;
  if (ledger_value_assign(stored.value, from.kind, from.value) != status_ok) {
    throw std::bad_alloc{};
  }
  return stored;
}

int ledger_map_store::page(std::string_view prefix, std::string_view after, std::size_t limit,
                           std::vector<ledger_stored>& ret) {
  auto at = after < prefix ? items_.lower_bound(prefix) : items_.upper_bound(after);
  for (; at != items_.end() && at->first.starts_with(prefix) && limit > 0; ++at, --limit) {
    ret.push_back(copy(at->first, at->second));
  }
  return status_ok;
}

int ledger_map_store::page_in_order(std::uint64_t after, std::size_t limit,
                                    std::vector<ledger_stored>& ret) {
  for (auto at = order_.upper_bound(after); at != order_.end() && limit > 0; ++at, --limit) {
    ret.push_back(copy(at->second, items_.find(at->second)->second));
  }
  return status_ok;
}

}  // namespace ot
