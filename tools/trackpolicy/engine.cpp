// States in, reactions told.
#include "tools/trackpolicy/engine.h"

#include <algorithm>
#include <optional>
#include <set>
#include <utility>

#include "tools/trackpolicy/kinds/kinds.h"

namespace ot::trackpolicy {

void engine::apply(const std::vector<policy>& policies) {
  std::set<std::string> names;
  for (const policy& each : policies) {
    names.insert(each.name);
    entry& at = entries_[each.name];
    const bool same = at.at_work && at.of.kind == each.kind && at.of.track == each.track;
    if (!same) {
      if (at.at_work) {
        at.at_work->remove();
      }
      at.at_work = kind_of(each.kind).make(each, host_);
      at.filter = {};
      if (!reachable_) {
        at.at_work->service_gone();
      }
    } else if (at.of != each) {
      at.at_work->change(each);
    }
    at.of = each;
    at.filter.configure(each, host_.now_us());
    if (const auto known = flaps_of_earlier_.find({each.name, each.track});
        known != flaps_of_earlier_.end()) {
      at.filter.recall(known->second, host_.now_us());
    }
  }
  std::erase_if(entries_, [&names](const auto& row) {
    const bool gone = !names.contains(row.first);
    if (gone) {
      row.second.at_work->remove();
    }
    return gone;
  });
  flaps_of_earlier_.clear();
  by_track_.clear();
  for (auto& [name, at] : entries_) {
    by_track_.emplace(at.of.track, &at);
    tell(at, "reloaded");
  }
}

void engine::recall_flaps() {
  flaps_of_earlier_ = read_flaps(host_.recall_flaps());
}

void engine::remember_flaps() {
  if (std::exchange(flapped_, false)) {
    flap_records all;
    for (const auto& [name, at] : entries_) {
      if (const auto one = at.filter.flaps(host_.now_us())) {
        all.emplace(std::pair(name, at.of.track), *one);
      }
    }
    host_.remember_flaps(text_of(all));
  }
}

situation engine::situation_of(const std::string& track, const char* reason) const {
  const auto found = states_.find(track);
  const known_state known = found == states_.end() ? known_state{} : found->second;
  return {.state = known.state, .since = known.since, .reason = reason};
}

void engine::tell(entry& to, const char* reason) {
  if (reachable_) {
    const std::uint64_t flaps = to.filter.flap_count();
    to.filter.see(situation_of(to.of.track, reason), host_.now_us());
    flapped_ = flapped_ || to.filter.flap_count() != flaps;
    hand_on(to);
  }
}

void engine::hand_on(entry& to) {
  while (const std::optional<situation> now = to.filter.take(host_.now_us())) {
    to.at_work->see(*now);
  }
}

void engine::set_states(known_states states, const char* reason) {
  states_ = std::move(states);
  reachable_ = true;
  for (auto& [name, at] : entries_) {
    tell(at, reason);
  }
}

void engine::change(const std::string& track, const known_state& to) {
  states_[track] = to;
  const auto [begin, end] = by_track_.equal_range(track);
  for (auto at = begin; at != end; ++at) {
    tell(*at->second, "change");
  }
}

void engine::service_gone() {
  reachable_ = false;
  for (auto& [name, at] : entries_) {
    at.filter.service_gone();
    at.at_work->service_gone();
  }
}

std::uint64_t engine::next_due_us() const noexcept {
  std::uint64_t next = reaction::never;
  for (const auto& [name, at] : entries_) {
    next = std::min({next, at.at_work->due_us(), at.filter.due_us()});
  }
  return next;
}

void engine::run_due() {
  const std::uint64_t now = host_.now_us();
  for (auto& [name, at] : entries_) {
    if (at.at_work->due_us() <= now) {
      at.at_work->set_due(reaction::never);
      at.at_work->due();
    }
    if (at.filter.due_us() <= now) {
      hand_on(at);
    }
  }
}

std::vector<policy_status> engine::status() const {
  std::vector<policy_status> all;
  for (const auto& [name, at] : entries_) {
    all.push_back({.of = at.of,
                   .state = situation_of(at.of.track, "").state,
                   .known = reachable_,
                   .at_work = at.at_work->status(),
                   .filter = at.filter.status(host_.now_us())});
  }
  return all;
}

}  // namespace ot::trackpolicy
