// A key at a time: what is there and not wanted goes, what is wanted and not there comes. All
// deletions of a turn go before its additions, so that policies can hand a key to each other.
#include "tools/trackpolicy/kernel/route_keeper.h"

#include <algorithm>
#include <cerrno>

#include "tools/trackpolicy/kernel/route_meaning.h"

namespace ot::trackpolicy {
namespace {

bool same(const kernel_route& there, kernel_route meant) {
  if (meant.ifindex == 0) {
    meant.ifindex = there.ifindex;
  }
  return there == meant;
}

}  // namespace

void route_keeper::set(const std::string& owner, const route& what, wish wanted) {
  const auto [at, fresh] = rows_.try_emplace(owner);
  if (fresh || at->second.what != what || at->second.wanted != wanted) {
    at->second.what = what;
    at->second.wanted = wanted;
    at->second.added_us = 0;
    at->second.refused.problem.clear();
    changed_.insert(owner);
  }
}

void route_keeper::forget(const std::string& owner) {
  const auto at = rows_.find(owner);
  if (at != rows_.end()) {
    unlist(at);
    changed_.erase(owner);
    rows_.erase(at);
  }
}

void route_keeper::unlist(rows::iterator at) {
  if (!at->second.meant) {
    return;
  }
  const auto listed = by_key_.find(at->second.meant->key);
  listed->second.erase(at->first);
  if (listed->second.empty()) {
    by_key_.erase(listed);
  }
  touched_.insert(at->second.meant->key);
  at->second.meant.reset();
}

void route_keeper::resolve(rows::iterator at, const link_table& links, route_kernel& kernel) {
  row& one = at->second;
  std::string problem;
  // What the kernel has refused stands until it is as wanted.
  if (!one.meant || is_there(*one.meant) == (one.wanted == wish::yes)) {
    one.refused.problem.clear();
  }
  unlist(at);
  one.meant = meaning_of(one.what, links, problem);
  if (one.meant) {
    by_key_[one.meant->key][at->first] = &one;
    touched_.insert(one.meant->key);
  } else if (one.wanted == wish::yes) {
    one.refused.refuse(at->first, problem, kernel);
  }
}

// --- What there is -------------------------------------------------------------------------------

void route_keeper::take_all(const std::vector<kernel_route>& there) {
  for (const auto& [key, each] : there_) {
    touched_.insert(key);
  }
  there_.clear();
  for (const kernel_route& each : there) {
    there_.emplace(each.key, each);
    touched_.insert(each.key);
  }
  for (const auto& [owner, each] : rows_) {
    changed_.insert(owner);
  }
}

void route_keeper::take_one(const kernel_route& what, bool there, bool by_us) {
  const auto [begin, end] = there_.equal_range(what.key);
  const auto known =
      std::find_if(begin, end, [&what](const auto& each) { return each.second == what; });
  if (there && known == end) {
    there_.emplace(what.key, what);
  } else if (!there && known != end) {
    there_.erase(known);
  }
  if (!by_us) {
    touched_.insert(what.key);
  }
}

bool route_keeper::is_there(const kernel_route& meant) const {
  const auto [begin, end] = there_.equal_range(meant.key);
  return std::any_of(begin, end, [&meant](const auto& each) { return same(each.second, meant); });
}

// --- What is to be done --------------------------------------------------------------------------

void route_keeper::try_again() {
  for (const auto& [owner, each] : rows_) {
    if (!each.refused.problem.empty()) {
      changed_.insert(owner);
    }
  }
}

bool route_keeper::refused() const noexcept {
  return std::any_of(rows_.begin(), rows_.end(),
                     [](const auto& each) { return !each.second.refused.problem.empty(); });
}

// Of several that want a route of that key, the one that has it, else the first by name.
const route_keeper::rows::value_type* route_keeper::winner(const route_key& key) const {
  const auto listed = by_key_.find(key);
  const std::string* best = nullptr;
  if (listed != by_key_.end()) {
    for (const auto& [owner, one] : listed->second) {
      if (one->wanted == wish::yes) {
        if (is_there(*one->meant)) {
          return &*rows_.find(owner);
        }
        best = best == nullptr ? &owner : best;
      }
    }
  }
  return best == nullptr ? nullptr : &*rows_.find(*best);
}

bool route_keeper::kept(const route_key& key) const {
  const auto listed = by_key_.find(key);
  return listed != by_key_.end() &&
         std::any_of(listed->second.begin(), listed->second.end(),
                     [](const auto& each) { return each.second->wanted == wish::keep; });
}

void route_keeper::plan(const route_key& key, std::vector<route_change>& ret_deletions,
                        std::vector<route_change>& ret_additions) const {
  const rows::value_type* const wanted = winner(key);
  if (wanted == nullptr && kept(key)) {
    return;
  }
  bool found = false;
  const auto [begin, end] = there_.equal_range(key);
  for (auto each = begin; each != end; ++each) {
    if (!found && wanted != nullptr && same(each->second, *wanted->second.meant)) {
      found = true;
    } else {
      ret_deletions.push_back({.add = false, .what = each->second, .error = 0, .text = {}});
    }
  }
  if (wanted != nullptr && !found) {
    ret_additions.push_back({.add = true, .what = *wanted->second.meant, .error = 0, .text = {}});
  }
}

// What somebody deletes again and again is not added more often than that.
void route_keeper::put_off(std::vector<route_change>& additions, std::uint64_t now_us) {
  std::erase_if(additions, [this, now_us](const route_change& each) {
    row& one = rows_.at(winner(each.what.key)->first);
    const bool soon = one.added_us != 0 && now_us < one.added_us + again_us;
    if (soon) {
      later_.insert(each.what.key);
    } else {
      one.added_us = now_us;
    }
    return soon;
  });
}

std::uint64_t route_keeper::settle(std::uint64_t now_us, const link_table& links,
                                   route_kernel& kernel) {
  for (const std::string& owner : changed_) {
    resolve(rows_.find(owner), links, kernel);
  }
  changed_.clear();
  touched_.merge(later_);
  later_.clear();
  std::vector<route_change> changes;
  std::vector<route_change> additions;
  for (const route_key& key : touched_) {
    plan(key, changes, additions);
  }
  touched_.clear();
  put_off(additions, now_us);
  changes.insert(changes.end(), additions.begin(), additions.end());
  if (!changes.empty()) {
    kernel.carry_out(changes);
  }
  for (const route_change& each : changes) {
    take_result(each, kernel);
  }
  return later_.empty() ? UINT64_MAX : now_us + again_us;
}

void route_keeper::take_result(const route_change& change, route_kernel& kernel) {
  const bool gone = !change.add && change.error == ESRCH;
  if (gone) {  // or somebody else's, beside which ours was
    take_one(change.what, false, true);
  }
  const auto listed = by_key_.find(change.what.key);
  if (listed == by_key_.end()) {
    return;
  }
  for (const auto& [owner, one] : listed->second) {
    const bool concerned = change.add ? one->meant == change.what : one->wanted == wish::no;
    if (concerned && change.error == 0) {
      ++one->changes;
      one->refused.problem.clear();
      one->refused.told.clear();
      one->refused.was_there = change.add;
    } else if (concerned && !gone) {
      one->refused.refuse(owner, refusal_text(change.error, change.text), kernel);
    }
  }
}

outcome route_keeper::status(const std::string& owner) const {
  const auto at = rows_.find(owner);
  if (at == rows_.end()) {
    return {};
  }
  const row& one = at->second;
  outcome made{
      .problem = one.refused.problem, .changes = one.changes, .refusals = one.refused.count};
  if (one.wanted == wish::yes && one.meant) {
    made.done = is_there(*one.meant);
    if (const auto* const first = winner(one.meant->key); !made.done && first != &*at) {
      made.problem = "policy \"" + first->first +
                     "\" has a route to the same destination, with the same metric";
    }
  } else if (one.meant) {
    made.done = !is_there(*one.meant) || winner(one.meant->key) != nullptr;
  }
  return made;
}

}  // namespace ot::trackpolicy
