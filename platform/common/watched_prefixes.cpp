#include "platform/common/watched_prefixes.h"

#include <algorithm>
#include <new>

#include "platform/ipv4.h"
#include "platform/status.h"

namespace ot {
namespace {

bool same(const rtclient_result& a, const rtclient_result& b) noexcept {
  return a.route_found == b.route_found && a.prefix_length == b.prefix_length &&
         a.own_address == b.own_address && a.first_hop == b.first_hop;
}

bool overlap(const fib_prefix& a, const fib_prefix& b) noexcept {
  const std::uint32_t shorter = std::min(a.length, b.length);
  return a.table == b.table && ((a.address ^ b.address) & ipv4_prefixlen2mask(shorter)) == 0;
}

}  // namespace

int watched_prefixes::add(const fib_prefix& prefix) noexcept {
  try {
    const auto [it, is_new] = prefixes_.try_emplace(prefix);
    it->second.reported = false;
    return is_new ? status_ok : fib_already_registered;
  } catch (const std::bad_alloc&) {
    return no_memory;
  }
}

int watched_prefixes::remove(const fib_prefix& prefix) noexcept {
  return prefixes_.erase(prefix) == 1 ? status_ok : not_found_errno;
}

void watched_prefixes::keep_tables(bool (*exists)(std::uint32_t table)) noexcept {
  std::erase_if(prefixes_, [exists](const auto& entry) { return !exists(entry.first.table); });
}

void watched_prefixes::look_at_all() {
  for (auto& [prefix, last] : prefixes_) {
    look(prefix, last);
  }
}

void watched_prefixes::look_at_related(std::span<const fib_prefix> routes) {
  for (auto& [prefix, last] : prefixes_) {
    const auto& watched = prefix;  // a lambda cannot take the binding itself
    const bool related = std::any_of(routes.begin(), routes.end(), [&](const fib_prefix& route) {
      return overlap(watched, route);
    });
    if (related || !last.reported) {
      look(prefix, last);
    }
  }
}

void watched_prefixes::look_at_containing(const fib_prefix& route) {
  for (std::uint32_t length = 0; length <= route.length; ++length) {
    const std::uint32_t address = route.address & ipv4_prefixlen2mask(length);
    const auto it = prefixes_.find({route.table, address, length});
    if (it != prefixes_.end()) {
      look(it->first, it->second);
    }
  }
}

void watched_prefixes::look(const fib_prefix& prefix, last_look& last) {
  rtclient_result now;
  if (find_(context_, prefix, &now) == status_ok && !(last.reported && same(last.result, now))) {
    last = {now, true, true};
    any_news_ = true;
  }
}

// The callback may register and unregister, so the walk goes by keys.
void watched_prefixes::notify(void (*changed)(const rtclient_notification*)) {
  auto it = any_news_ ? prefixes_.begin() : prefixes_.end();
  any_news_ = false;
  while (it != prefixes_.end()) {
    if (!it->second.is_news) {
      ++it;
      continue;
    }
    it->second.is_news = false;
    const fib_prefix prefix = it->first;
    const rtclient_notification notification{fib_family_ipv4, prefix.table, prefix.address,
                                             prefix.length};
    being_reported_ = {prefix, it->second.result};
    changed(&notification);
    being_reported_.reset();
    it = prefixes_.upper_bound(prefix);
  }
}

const rtclient_result* watched_prefixes::being_reported(std::uint32_t table,
                                                        std::uint32_t address) const noexcept {
  const bool this_one = being_reported_ && being_reported_->prefix.table == table &&
                        being_reported_->prefix.address == address;
  return this_one ? &being_reported_->result : nullptr;
}

void watched_prefixes::report_failed() noexcept {
  const auto it = being_reported_ ? prefixes_.find(being_reported_->prefix) : prefixes_.end();
  if (it != prefixes_.end()) {
    it->second.reported = false;
  }
}

}  // namespace ot
