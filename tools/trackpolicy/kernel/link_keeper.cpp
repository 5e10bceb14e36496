// All interfaces that are asked for are looked at each time: there are few of them.
#include "tools/trackpolicy/kernel/link_keeper.h"

#include <algorithm>
#include <system_error>
#include <utility>

namespace ot::trackpolicy {
namespace {

constexpr std::uint64_t never = UINT64_MAX;
constexpr std::uint64_t retry_us = 5'000'000;

// What an interface lies on, such as a VLAN's, and so on; the kernel makes no longer chains.
constexpr int lower_max = 16;

bool lies_on(const link_table& links, const std::string& name, const std::string& below) {
  const link_fact* link = links.find(name);
  for (int depth = 0; link != nullptr && depth < lower_max; ++depth) {
    if (link->name == below) {
      return true;
    }
    link = link->lower == 0 ? nullptr : links.find(link->lower);
  }
  return name == below;
}

}  // namespace

std::string reason_against(const std::string& track, const std::string& interface,
                           const link_table& links, const foundations& tracks) {
  for (const auto& [name, how] : tracks.below(track)) {
    if (lies_on(links, name, interface)) {
      std::string text = interface;
      text.append(" is not set down: track \"").append(track).append("\" depends on it (");
      text.append(how).append(name == interface ? " it" : ' ' + name + ", which lies on it");
      return text + "), and would never be up again";
    }
  }
  return {};
}

void link_keeper::set(const std::string& owner, const std::string& track,
                      const std::string& interface, wish up) {
  row& one = rows_[owner];
  one.track = track;
  one.interface = interface;
  one.up = up;
}

std::uint64_t link_keeper::settle(const link_table& links, const foundations& tracks,
                                  link_kernel& kernel) {
  follow_names(links, kernel);
  for (auto& [owner, one] : rows_) {
    one.refused.problem.clear();
  }
  std::uint64_t next = never;
  for (const auto& [interface, wanted] : wishes(links, tracks, kernel)) {
    next = std::min(next, bring(interface, links, wanted, kernel));
  }
  for (auto& [owner, one] : rows_) {
    if (one.refused.problem.empty()) {
      one.refused.told.clear();
    }
  }
  return next;
}

// An interface that is gone was set down by nobody when it comes back; one that has another name
// now is still held.
void link_keeper::follow_names(const link_table& links, link_kernel& kernel) {
  held_links now;
  for (const auto& [name, index] : held_) {
    if (const link_fact* const link = links.find(index); link != nullptr) {
      now.emplace(link->name, index);
    }
  }
  if (now != held_) {
    held_ = std::move(now);
    (void)kernel.remember(held_);
  }
}

// Down when a policy wants that, up when all do; an interface that nobody asks for any more is to
// be up if we have set it down.
std::map<std::string, wish> link_keeper::wishes(const link_table& links, const foundations& tracks,
                                                link_kernel& kernel) {
  std::map<std::string, wish> all;
  for (const auto& [interface, index] : held_) {
    all[interface] = wish::yes;
  }
  for (auto& [owner, one] : rows_) {
    wish& wanted = all.try_emplace(one.interface, wish::yes).first->second;
    const std::string reason = reason_against(one.track, one.interface, links, tracks);
    // What the track stands on has to be known first.
    const wish up = one.up == wish::no && !tracks.know(one.track) ? wish::keep : one.up;
    if (!reason.empty()) {
      one.refused.refuse(owner, reason, kernel);
    } else if (up == wish::no || (up == wish::keep && wanted == wish::yes)) {
      wanted = up;
    }
  }
  return all;
}

std::uint64_t link_keeper::bring(const std::string& interface, const link_table& links, wish up,
                                 link_kernel& kernel) {
  const link_fact* const link = links.find(interface);
  if (link == nullptr) {
    refuse(interface, "there is no interface \"" + interface + '"', kernel);
    return never;
  }
  if (up == wish::no && link->up) {
    return change(*link, false, kernel);
  }
  const auto held = held_.find(interface);
  if (up != wish::yes || held == held_.end()) {
    return never;
  }
  if (!link->up) {
    return change(*link, true, kernel);
  }
  held_.erase(held);  // somebody else was first
  (void)kernel.remember(held_);
  return never;
}

// What somebody undoes again and again is not done more often than that.
std::uint64_t link_keeper::change(const link_fact& link, bool up, link_kernel& kernel) {
  const std::uint64_t now = kernel.now_us();
  const auto latest = acts_.find(link.name);
  if (latest != acts_.end() && latest->second.up == up && now < latest->second.when_us + again_us) {
    if (!latest->second.refusal.empty()) {
      refuse(link.name, latest->second.refusal, kernel);
    }
    return latest->second.when_us + again_us;
  }
  const std::string wrong = up ? set_up(link, kernel) : set_down(link, kernel);
  act& made = acts_[link.name] = {.up = up, .when_us = now, .refusal = {}};
  if (!wrong.empty()) {
    made.refusal = link.name + " cannot be set " + (up ? "up: " : "down: ") + wrong;
    refuse(link.name, made.refusal, kernel);
    return now + retry_us;
  }
  for (auto& [owner, one] : rows_) {
    one.changes += one.interface == link.name ? 1 : 0;
  }
  return never;
}

// Not without being remembered: nobody would set it up again.
std::string link_keeper::set_down(const link_fact& link, link_kernel& kernel) {
  const bool fresh = held_.emplace(link.name, link.index).second;
  if (fresh) {
    std::string wrong = kernel.remember(held_);
    if (!wrong.empty()) {
      held_.erase(link.name);
      return wrong;
    }
  }
  const int error = kernel.set_up(link.index, false);
  if (error == 0) {
    return {};
  }
  if (fresh) {
    held_.erase(link.name);
    (void)kernel.remember(held_);
  }
  return std::generic_category().message(error);
}

std::string link_keeper::set_up(const link_fact& link, link_kernel& kernel) {
  if (const int error = kernel.set_up(link.index, true); error != 0) {
    return std::generic_category().message(error);
  }
  held_.erase(link.name);
  (void)kernel.remember(held_);
  return {};
}

void link_keeper::refuse(const std::string& interface, const std::string& text,
                         link_kernel& kernel) {
  for (auto& [owner, one] : rows_) {
    if (one.interface == interface && one.refused.problem.empty()) {
      one.refused.refuse(owner, text, kernel);
    }
  }
}

outcome link_keeper::status(const std::string& owner, const link_table& links) const {
  const auto at = rows_.find(owner);
  if (at == rows_.end()) {
    return {};
  }
  const row& one = at->second;
  outcome made{
      .problem = one.refused.problem, .changes = one.changes, .refusals = one.refused.count};
  const link_fact* const link = links.find(one.interface);
  const bool held = held_.contains(one.interface);
  if (link == nullptr) {
    made.stands = "waits for " + one.interface;
  } else if (link->up) {
    made.stands = one.interface + " is up";
  } else {
    made.stands = one.interface + (held ? " is set down" : " is down, and not by trackpolicy");
  }
  made.done = link != nullptr && (one.up == wish::no ? !link->up : link->up || !held);
  return made;
}

}  // namespace ot::trackpolicy
