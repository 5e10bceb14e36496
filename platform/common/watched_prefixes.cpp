#include "platform/common/watched_prefixes.h"

#include <arpa/inet.h>

#include <algorithm>
#include <new>

#include "platform/ipv4.h"
#include "platform/status.h"

namespace ot {
namespace {

constexpr std::uint32_t host_length = 32;

bool same(const rtclient_result& a, const rtclient_result& b) noexcept {
  return a.route_found == b.route_found && a.prefix_length == b.prefix_length &&
         a.own_address == b.own_address && a.first_hop == b.first_hop;
}

// Host byte order.
std::uint32_t mask_of(std::uint32_t length) noexcept {
  return ntohl(ipv4_prefixlen2mask(length));
}

}  // namespace

watched_prefixes::key watched_prefixes::key_of(const fib_prefix& prefix) noexcept {
  return {prefix.table, ntohl(prefix.address), prefix.length};
}

fib_prefix watched_prefixes::prefix_of(const key& key) noexcept {
  return {key.table, htonl(key.address), key.length};
}

// Visit returns whether to go on.
template <typename Map, typename Visit>
void watched_prefixes::visit_containing(Map& prefixes, std::uint64_t lengths, const key& route,
                                        Visit visit) {
  for (std::uint32_t length = 0; length <= route.length; ++length) {
    if ((lengths >> length & 1) == 0) {
      continue;
    }
    const auto it = prefixes.find({route.table, route.address & mask_of(length), length});
    if (it != prefixes.end() && !visit(*it)) {
      return;
    }
  }
}

template <typename Map, typename Visit>
void watched_prefixes::visit_inside(Map& prefixes, const key& route, Visit visit) {
  const std::uint32_t last = route.address | ~mask_of(route.length);
  for (auto it = prefixes.lower_bound(route);
       it != prefixes.end() && it->first.table == route.table && it->first.address <= last; ++it) {
    if (!visit(*it)) {
      return;
    }
  }
}

int watched_prefixes::add(const fib_prefix& prefix) noexcept {
  if (prefix.length > host_length) {
    return invalid_argument;
  }
  try {
    const auto [it, is_new] = prefixes_.try_emplace(key_of(prefix));
    it->second.reported = false;
    lengths_ |= std::uint64_t{1} << prefix.length;
    any_new_ = true;
    return is_new ? status_ok : fib_already_registered;
  } catch (const std::bad_alloc&) {
    return no_memory;
  }
}

int watched_prefixes::remove(const fib_prefix& prefix) noexcept {
  return prefixes_.erase(key_of(prefix)) == 1 ? status_ok : not_found_errno;
}

void watched_prefixes::keep_tables(bool (*exists)(std::uint32_t table)) noexcept {
  std::erase_if(prefixes_, [exists](const auto& entry) { return !exists(entry.first.table); });
}

bool watched_prefixes::concerned_by(const fib_prefix& route) const noexcept {
  bool found = false;
  const auto note = [&found](const auto&) {
    found = true;
    return false;
  };
  visit_containing(prefixes_, lengths_, key_of(route), note);
  if (!found) {
    visit_inside(prefixes_, key_of(route), note);
  }
  return found;
}

// Looks at those that the condition holds for, some at a time; whether there were any.
template <typename Condition>
bool watched_prefixes::look_where(Condition condition) {
  constexpr std::size_t at_a_time = 32;
  std::array<fib_prefix, at_a_time> chosen;
  bool any = false;
  for (auto it = prefixes_.begin(); it != prefixes_.end();) {
    const auto begin = it;
    std::size_t count = 0;
    for (; it != prefixes_.end() && count < at_a_time; ++it) {
      if (condition(it->second)) {
        chosen[count++] = prefix_of(it->first);
      }
    }
    if (count > 0 && ahead_ != nullptr) {
      ahead_(context_, std::span(chosen).first(count));
    }
    std::size_t next = 0;
    for (auto entry = begin; next < count; ++entry) {
      if (prefix_of(entry->first) == chosen[next]) {
        look(entry->first, entry->second);
        ++next;
      }
    }
    any = any || count > 0;
  }
  if (any && ahead_ != nullptr) {
    ahead_(context_, {});
  }
  return any;
}

void watched_prefixes::look_at_all() {
  ++pass_;
  any_new_ = false;
  look_where([](const last_look&) { return true; });
}

bool watched_prefixes::look_at_using(std::span<const std::uint32_t> links) {
  ++pass_;
  return look_where([links](const last_look& last) {
    return std::any_of(links.begin(), links.end(),
                       [&last](std::uint32_t link) { return last.links.may_have(link); });
  });
}

void watched_prefixes::look_at_related(std::span<const fib_prefix> routes) {
  ++pass_;
  const auto look_again = [this](auto& entry) {
    look(entry.first, entry.second);
    return true;
  };
  for (const fib_prefix& route : routes) {
    visit_containing(prefixes_, lengths_, key_of(route), look_again);
    visit_inside(prefixes_, key_of(route), look_again);
  }
  if (any_new_) {
    any_new_ = false;
    for (auto& [prefix, last] : prefixes_) {
      if (!last.reported) {
        look(prefix, last);
      }
    }
  }
}

void watched_prefixes::look_at_containing(const fib_prefix& route) {
  ++pass_;
  visit_containing(prefixes_, lengths_, key_of(route), [this](auto& entry) {
    look(entry.first, entry.second);
    return true;
  });
}

// At most once in a pass, however many of its routes concern the prefix.
void watched_prefixes::look(const key& prefix, last_look& last) {
  if (last.pass == pass_) {
    return;
  }
  last.pass = pass_;
  fib_answer now;
  if (find_(context_, prefix_of(prefix), &now) != status_ok) {
    any_new_ |= !last.reported;
    any_failed_ = true;
    return;
  }
  last.links = now.links;
  if (!(last.reported && same(last.result, now.result))) {
    last.result = now.result;
    last.reported = true;
    last.is_news = true;
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
    const key at = it->first;
    const fib_prefix prefix = prefix_of(at);
    const rtclient_notification notification{fib_family_ipv4, prefix.table, prefix.address,
                                             prefix.length};
    being_reported_ = {prefix, it->second.result};
    changed(&notification);
    being_reported_.reset();
    it = prefixes_.upper_bound(at);
  }
}

const rtclient_result* watched_prefixes::being_reported(std::uint32_t table,
                                                        std::uint32_t address) const noexcept {
  const bool this_one = being_reported_ && being_reported_->prefix.table == table &&
                        being_reported_->prefix.address == address;
  return this_one ? &being_reported_->result : nullptr;
}

void watched_prefixes::report_failed() noexcept {
  const auto it =
      being_reported_ ? prefixes_.find(key_of(being_reported_->prefix)) : prefixes_.end();
  if (it != prefixes_.end()) {
    it->second.reported = false;
    any_new_ = true;
  }
}

}  // namespace ot
