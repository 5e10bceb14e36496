#include "tools/trackctl/explain/trial.h"

#include <algorithm>

#include "tools/trackctl/explain/rules.h"

namespace ot::trackctl::explain {

trial::trial(const site& tracks, const std::string& list) : tracks_(tracks) {
  add(list, tracks.at(list));
  up_.resize(nodes_.size());
}

// Tracks on one object go along with each other. Without words for it a track has one of its own.
void trial::add_object(const std::string& name, node& of) {
  const std::string& words = of.track->object.empty() ? name : of.track->object;
  const auto [known, fresh] = by_words_.try_emplace(words, objects_.size());
  if (fresh) {
    objects_.push_back(name);
  }
  of.object = known->second;
}

std::size_t trial::add(const std::string& name, const track_facts& track) {
  if (const auto [known, fresh] = progress_.try_emplace(name, progress::begun); !fresh) {
    cyclic_ |= known->second == progress::begun;
    return known->second == progress::begun ? none : numbers_.at(name);
  }
  node made{.track = &track, .members = {}};
  if (is_list_type(track.type)) {
    for (const member& each : track.members) {
      const track_facts* of = find(tracks_, each.name);
      made.members.push_back(of == nullptr ? none : add(each.name, *of));
    }
  } else if (track.type != track_type::none) {
    add_object(name, made);
  }
  cost_ += made.members.size() + 1;
  nodes_.push_back(std::move(made));
  progress_[name] = progress::done;
  return numbers_[name] = nodes_.size() - 1;
}

std::size_t trial::object_of(const std::string& track) const {
  const auto found = numbers_.find(track);
  return found == numbers_.end() ? none : nodes_[found->second].object;
}

bool trial::can_turn(std::size_t object, bool up) const {
  return std::any_of(nodes_.begin(), nodes_.end(), [&](const node& each) {
    return each.object == object && (each.track->source == track_state::up) != up;
  });
}

bool trial::is_up_with(std::span<const turn> turns) {
  for (std::size_t number = 0; number < nodes_.size(); ++number) {
    const node& each = nodes_[number];
    const track_facts& track = *each.track;
    if (!is_list_type(track.type)) {
      const auto turned = std::find_if(turns.begin(), turns.end(),
                                       [&](const turn& one) { return one.object == each.object; });
      up_[number] = turned == turns.end() ? track.source == track_state::up : turned->up;
      continue;
    }
    std::size_t at = 0;
    const tally counted = count_members(track, [&](const member& one) {
      const std::size_t of = each.members[at++];
      return (of != none && up_[of] != 0) != (is_boolean(track.type) && one.value != 0);
    });
    up_[number] = is_up(track, counted) ? 1 : 0;
  }
  return up_.back() != 0;
}

}  // namespace ot::trackctl::explain
