// Items in a map by path, and the order of their changes beside it. The whole of a write is checked
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

// Whether the writes, one after the other, find what they need.
bool ledger_map_store::takes(std::span<const ledger_write> writes, int& ret_status) const {
  std::map<std::string_view, bool> changed;
  for (const ledger_write& change : writes) {
    const auto before = changed.find(change.path);
    const bool present = before == changed.end() ? items_.contains(change.path) : before->second;
    if (!present && (change.remove || items_.size() >= capacity_)) {
      ret_status = change.remove ? ledger_no_data : ledger_full;
      return false;
    }
    changed[change.path] = !change.remove;
  }
  return true;
}

std::uint64_t ledger_map_store::first_of_owner(std::string_view prefix,
                                               std::uint64_t otherwise) const noexcept {
  const auto other = items_.lower_bound(prefix);
  return other != items_.end() && other->first.starts_with(prefix) ? other->second.first
                                                                   : otherwise;
}

int ledger_map_store::write(std::span<const ledger_write> writes) {
  if (failure_ != status_ok) {
    return std::exchange(failure_, status_ok);
  }
  if (int status = status_ok; !takes(writes, status)) {
    return status;
  }
  for (const ledger_write& change : writes) {
    const auto found = items_.find(change.path);
    const std::uint64_t sequence = ++last_sequence_;
    std::uint64_t first =
        change.owner == 0 ? sequence : first_of_owner(change.owner_prefix(), sequence);
    if (!change.move_to.empty() && found != items_.end()) {
      order_[found->second.sequence] = change.move_to;
      items_.insert_or_assign(std::string{change.move_to}, std::move(found->second));
      items_.erase(found);
      continue;
    }
    if (found != items_.end()) {
      first = found->second.first;
      order_.erase(found->second.sequence);
      items_.erase(found);
    }
    if (!change.remove) {
      items_.emplace(
          change.path,
          item{change.kind, {change.value.begin(), change.value.end()}, sequence, first});
      order_.emplace(sequence, change.path);
    }
  }
  return status_ok;
}

ledger_stored ledger_map_store::copy(const std::string& path, const item& from) {
  ledger_stored stored;
  stored.path = path;
  stored.sequence = from.sequence;
  stored.first = from.first;
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
    const item& listed = items_.find(at->second)->second;
    ledger_stored& stored = ret.emplace_back();
    stored.path = at->second;
    stored.sequence = listed.sequence;
    stored.first = listed.first;
  }
  return status_ok;
}

}  // namespace ot
