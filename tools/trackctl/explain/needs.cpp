// A threshold list tries few members before many; beyond three, and where there are very many, the
// largest weights first.
#include "tools/trackctl/explain/needs.h"

#include <algorithm>
#include <functional>
#include <utility>
#include <vector>

#include "tools/trackctl/explain/rules.h"

namespace ot::trackctl::explain {
namespace {

constexpr std::size_t changes_most = 100;
constexpr std::size_t flips_most = 3;
constexpr std::size_t tries_most = 100'000;

using needed = std::optional<changes>;

// False when the two want different states of a track.
bool add(changes& all, const changes& more) {
  for (const auto& [track, up] : more) {
    if (all.emplace(track, up).first->second != up) {
      return false;
    }
  }
  return all.size() <= changes_most;
}

class search {
 public:
  explicit search(const site& tracks) : tracks_(tracks) {}

  needed need(const std::string& name, bool up);

 private:
  // A member that could be brought to the other state.
  struct flip {
    const member* of = nullptr;
    bool up_now = false;
    changes needs;
  };

  needed need_of_list(const track_facts& list, bool up);
  needed all_members(const track_facts& list, bool up);
  needed best_member(const track_facts& list, bool up);
  needed enough_members(const track_facts& list, bool up);
  std::vector<flip> flips_of(const track_facts& list);
  needed try_few(const track_facts& list, bool up, const std::vector<flip>& flips);
  needed try_largest(const track_facts& list, bool up, std::vector<flip> flips);
  bool would_be(const track_facts& list, bool up, const std::vector<const flip*>& chosen) const;
  static needed together(const std::vector<const flip*>& chosen);

  const site& tracks_;
  std::map<std::pair<std::string, bool>, needed> known_;  // none also while it is worked out
};

needed search::need(const std::string& name, bool up) {
  const track_facts* track = find(tracks_, name);
  if (track == nullptr) {
    return up ? needed{} : changes{};
  }
  if ((track->source == track_state::up) == up) {
    return changes{};
  }
  if (!is_list_type(track->type)) {
    return track->type == track_type::none ? needed{} : changes{{name, up}};
  }
  const auto [known, fresh] = known_.try_emplace({name, up});
  if (fresh) {
    needed found = need_of_list(*track, up);
    known_[{name, up}] = std::move(found);
  }
  return known_[{name, up}];
}

needed search::need_of_list(const track_facts& list, bool up) {
  if (list.members.empty()) {
    return up ? needed{} : changes{};
  }
  if (!is_boolean(list.type)) {
    return enough_members(list, up);
  }
  return (list.type == track_type::boolean_and) == up ? all_members(list, up)
                                                      : best_member(list, up);
}

needed search::all_members(const track_facts& list, bool up) {
  changes all;
  for (const member& each : list.members) {
    const needed one = need(each.name, up != (each.value != 0));
    if (!one || !add(all, *one)) {
      return {};
    }
  }
  return all;
}

needed search::best_member(const track_facts& list, bool up) {
  needed best;
  for (const member& each : list.members) {
    needed one = need(each.name, up != (each.value != 0));
    if (one && (!best || one->size() < best->size())) {
      best = std::move(one);
    }
  }
  return best;
}

std::vector<search::flip> search::flips_of(const track_facts& list) {
  std::vector<flip> flips;
  for (const member& each : list.members) {
    const bool up_now = counts_as_up(tracks_, list.type, each);
    if (needed needs = find(tracks_, each.name) == nullptr ? needed{} : need(each.name, !up_now)) {
      flips.push_back({&each, up_now, std::move(*needs)});
    }
  }
  std::stable_sort(flips.begin(), flips.end(), [](const flip& one, const flip& other) {
    return one.needs.size() < other.needs.size();
  });
  return flips;
}

bool search::would_be(const track_facts& list, bool up,
                      const std::vector<const flip*>& chosen) const {
  const tally counted = count_members(list, [&](const member& each) {
    const bool flipped = std::any_of(chosen.begin(), chosen.end(),
                                     [&](const flip* one) { return one->of == &each; });
    return counts_as_up(tracks_, list.type, each) != flipped;
  });
  return is_up(list, counted) == up;
}

needed search::together(const std::vector<const flip*>& chosen) {
  changes all;
  for (const flip* one : chosen) {
    if (!add(all, one->needs)) {
      return {};
    }
  }
  return all;
}

needed search::try_few(const track_facts& list, bool up, const std::vector<flip>& flips) {
  std::size_t tries = 0;
  needed best;
  std::vector<const flip*> chosen;
  const std::function<void(std::size_t, std::size_t)> choose = [&](std::size_t from,
                                                                   std::size_t count) {
    if (count == 0) {
      if (++tries <= tries_most / list.members.size() && would_be(list, up, chosen)) {
        needed all = together(chosen);
        if (all && (!best || all->size() < best->size())) {
          best = std::move(all);
        }
      }
      return;
    }
    for (std::size_t at = from; at + count <= flips.size() && tries < tries_most; ++at) {
      chosen.push_back(&flips[at]);
      choose(at + 1, count - 1);
      chosen.pop_back();
    }
  };
  // A member that is a list may need more changes than two others, but none needs less than one.
  for (std::size_t count = 1; count <= flips_most && (!best || best->size() > count); ++count) {
    choose(0, count);
  }
  return best;
}

needed search::try_largest(const track_facts& list, bool up, std::vector<flip> flips) {
  const tally now = count_members(
      list, [&](const member& each) { return counts_as_up(tracks_, list.type, each); });
  const bool more = up ? now.value < list.limit_down : now.value <= list.limit_up;
  std::erase_if(flips, [&](const flip& one) { return one.up_now == more; });
  std::stable_sort(flips.begin(), flips.end(), [](const flip& one, const flip& other) {
    return one.of->value > other.of->value;
  });
  std::vector<const flip*> chosen;
  for (const flip& one : flips) {
    chosen.push_back(&one);
    if (would_be(list, up, chosen)) {
      return together(chosen);
    }
  }
  return {};
}

needed search::enough_members(const track_facts& list, bool up) {
  const std::vector<flip> flips = flips_of(list);
  if (would_be(list, up, {})) {
    return changes{};
  }
  needed found = try_few(list, up, flips);
  return found ? found : try_largest(list, up, flips);
}

}  // namespace

std::optional<changes> likely_remedy(const site& tracks, const std::string& list) {
  return search(tracks).need(list, true);
}

}  // namespace ot::trackctl::explain
