// Each track gets a node of its own once, so that the tree is never larger than the configuration,
// whatever contains what.
#include "tools/trackctl/explain/tree.h"

#include <set>

#include "tools/json.h"
#include "tools/trackctl/explain/remedy.h"
#include "tools/trackctl/explain/rules.h"
#include "tools/trackctl/kinds/kinds.h"
#include "tools/trackctl/states.h"
#include "tools/trackctl/times.h"

namespace ot::trackctl::explain {
namespace {

using json = nlohmann::ordered_json;

constexpr std::int64_t ms_per_second = 1000;
constexpr std::size_t depth_most = 16;

std::string time_of(std::int64_t since_epoch_ms) {
  return json_time(from_epoch(milliseconds(since_epoch_ms)));
}

const char* up_or_down(bool up) {
  return up ? "up" : "down";
}

const char* kind_word(track_type type) {
  const track_kind* kind = find_track_kind(type);
  return kind == nullptr ? "none" : kind->word;
}

class tree_maker {
 public:
  tree_maker(const site& tracks, std::int64_t now_ms) : tracks_(tracks), now_ms_(now_ms) {}

  json make(const std::string& name, const track_facts& track);

 private:
  json delay_of(const track_facts& track) const;
  json list_of(const track_facts& list) const;
  json member_of(const track_facts& list, const member& each);

  const site& tracks_;
  std::int64_t now_ms_;
  std::set<std::string> made_;
  std::set<std::string> open_;  // from the first node to this one
};

json tree_maker::delay_of(const track_facts& track) const {
  if (!track.delay) {
    return nullptr;
  }
  const auto left = static_cast<std::int64_t>(track.delay->remaining_ms);
  return {
      {"to", word_of(track.delay->to)}, {"ends", time_of(now_ms_ + left)}, {"remaining_ms", left}};
}

json tree_maker::list_of(const track_facts& list) const {
  if (!is_list_type(list.type)) {
    return nullptr;
  }
  const tally counted = count_members(
      list, [&](const member& each) { return counts_as_up(tracks_, list.type, each); });
  json all = {{"members", counted.count}, {"up", counted.up}};
  if (!is_boolean(list.type)) {
    all["value"] = counted.value;
    all["limits"] = {{"up", list.limit_up}, {"down", list.limit_down}};
  }
  all["result"] = up_or_down(is_up(list, counted));
  return all;
}

json tree_maker::member_of(const track_facts& list, const member& each) {
  const track_facts* track = find(tracks_, each.name);
  json node = {{"name", each.name}};
  if (is_boolean(list.type)) {
    node["not"] = each.value != 0;
  } else {
    node["weight"] = each.value;
  }
  node["counts_as"] = up_or_down(counts_as_up(tracks_, list.type, each));
  node["missing"] = track == nullptr;
  if (track == nullptr) {
    node["track"] = nullptr;
  } else if (made_.contains(each.name) || open_.size() >= depth_most) {
    node["state"] = word_of(track->state);
    node["seen"] = open_.contains(each.name)   ? "cycle"
                   : made_.contains(each.name) ? "above"
                                               : "deeper";
    node["track"] = nullptr;
  } else {
    node["track"] = make(each.name, *track);
  }
  return node;
}

json tree_maker::make(const std::string& name, const track_facts& track) {
  made_.insert(name);
  open_.insert(name);
  json node = {
      {"name", name},
      {"type", kind_word(track.type)},
      {"state", word_of(track.state)},
      {"since", track.since == 0 ? json(nullptr) : json(time_of(track.since * ms_per_second))},
      {"delay", delay_of(track)},
      {"delay_up", track.delay_up},
      {"delay_down", track.delay_down}};
  node["object"] = track.object.empty()
                       ? json(nullptr)
                       : json{{"what", track.object}, {"findings", track.findings}};
  node["list"] = list_of(track);
  node["members"] = json::array();
  for (const member& each : track.members) {
    node["members"].push_back(member_of(track, each));
  }
  open_.erase(name);
  return node;
}

json remedy_of(const site& tracks, const std::string& name, const track_facts& track) {
  if (!is_list_type(track.type) || track.state == track_state::up) {
    return nullptr;
  }
  if (track.source == track_state::up) {
    return json::array();  // it comes
  }
  const auto found = find_remedy(tracks, name);
  if (!found) {
    return nullptr;
  }
  json all = json::array();
  for (const auto& [changed, up] : *found) {
    all.push_back({{"track", changed}, {"to", up_or_down(up)}});
  }
  return all;
}

}  // namespace

json make_tree(const site& tracks, const std::string& name, std::int64_t now_ms) {
  const track_facts& track = tracks.at(name);
  json tree = tree_maker(tracks, now_ms).make(name, track);
  tree["remedy"] = remedy_of(tracks, name, track);
  return tree;
}

}  // namespace ot::trackctl::explain
