#include "tools/trackctl/what_if/question.h"

#include <algorithm>
#include <set>

#include "tools/trackctl/cycles.h"
#include "tools/trackctl/track_line.h"

namespace ot::trackctl {
namespace {

constexpr std::string_view list_folder = "type/list/";

bool is_list(const track_items& items) {
  const auto found = items.lower_bound(list_folder);
  return found != items.end() && found->first.starts_with(list_folder);
}

bool has_type(const track_items& items) {
  const auto found = items.lower_bound(type_prefix);
  return found != items.end() && found->first.starts_with(type_prefix);
}

// No interface can have such a name.
wanted_type object_of_its_own(const std::string& list) {
  return {.folder = "type/interface/0x1/",
          .items = {{"type/interface/0x1/a", u32_value(1)},
                    {"type/interface/0x1/info/interface", text_value("list/" + list)}}};
}

bool is_assumed(const std::vector<what_if::assumption>& assumptions, std::string_view track) {
  return std::any_of(assumptions.begin(), assumptions.end(),
                     [&](const auto& each) { return each.track == track; });
}

// What the track follows, in words; empty for lists and where it follows nothing.
std::string object_words(const track_items& items) {
  return is_list(items) || !has_type(items) ? "" : describe_object(items);
}

what_if::assumption read_assumption(const std::string& word) {
  const std::size_t sign = word.rfind('=');
  const std::string state = sign == std::string::npos ? "" : word.substr(sign + 1);
  if (sign == 0 || (state != "up" && state != "down")) {
    throw failure(exit_usage, "\"" + word + "\" is not NAME=up or NAME=down");
  }
  return {word.substr(0, sign), state == "up" ? track_state::up : track_state::down};
}

// Behind the items that stand for it, in the order in which members came.
std::size_t age_of(const std::string& item, const member_places* places) {
  constexpr std::string_view folder = "/object/";
  const std::size_t at = item.find(folder);
  if (places == nullptr || at == std::string::npos) {
    return 0;
  }
  const std::size_t begin = at + folder.size();
  const auto found = places->find(item.substr(begin, item.rfind('/') - begin));
  return found == places->end() ? 0 : places->size() - found->second;
}

}  // namespace

std::vector<what_if::assumption> read_assumptions(const arguments& words) {
  std::vector<what_if::assumption> assumptions;
  for (const std::string& word : words) {
    what_if::assumption read = read_assumption(word);
    if (is_assumed(assumptions, read.track)) {
      throw failure(exit_usage, "track \"" + read.track + "\" is named twice");
    }
    assumptions.push_back(std::move(read));
  }
  return assumptions;
}

void check_assumptions(const std::vector<what_if::assumption>& assumptions,
                       const configured_tracks& tracks) {
  std::map<std::string, const what_if::assumption*> by_object;
  for (const what_if::assumption& each : assumptions) {
    const auto found = tracks.find(each.track);
    if (found == tracks.end()) {
      throw failure(exit_refused, "there is no track \"" + each.track +
                                      "\"; `trackctl show` lists those there are");
    }
    if (!has_type(found->second)) {
      throw failure(exit_refused, "track \"" + each.track +
                                      "\" follows nothing yet, so nothing can go up or down");
    }
    const std::string object = object_words(found->second);
    if (object.empty()) {
      continue;
    }
    const auto [other, fresh] = by_object.emplace(object, &each);
    if (!fresh && other->second->state != each.state) {
      throw failure(exit_usage, "tracks \"" + other->second->track + "\" and \"" + each.track +
                                    "\" both follow " + object +
                                    ", which cannot be up and down at once");
    }
  }
}

void let_stand_alone(const std::vector<what_if::assumption>& assumptions,
                     configured_tracks& tracks) {
  for (const what_if::assumption& each : assumptions) {
    const auto found = tracks.find(each.track);
    if (found == tracks.end() || !is_list(found->second)) {
      continue;
    }
    track_items& items = found->second;
    std::erase_if(items, [](const auto& item) { return item.first.starts_with(type_prefix); });
    for (config_item& item : object_of_its_own(each.track).items) {
      items.emplace(std::move(item.path), std::move(item.value));
    }
  }
}

void let_stand_alone(const std::vector<what_if::assumption>& assumptions,
                     std::vector<file_track>& tracks) {
  for (file_track& track : tracks) {
    if (is_assumed(assumptions, track.said.name) && is_list(track.said.items())) {
      track.said.type = object_of_its_own(track.said.name);
    }
  }
}

std::vector<what_if::stored_item> items_of(
    const configured_tracks& tracks,
    const std::map<std::string, member_places, std::less<>>& places) {
  std::vector<what_if::stored_item> all;
  for (const auto& [name, items] : tracks) {
    const auto known = places.find(name);
    const member_places* of_track = known == places.end() ? nullptr : &known->second;
    std::vector<const track_items::value_type*> ordered;
    for (const auto& item : items) {
      ordered.push_back(&item);
    }
    std::stable_sort(ordered.begin(), ordered.end(), [&](const auto* one, const auto* other) {
      return age_of(one->first, of_track) < age_of(other->first, of_track);
    });
    for (const auto* item : ordered) {
      all.push_back({track_path(name) + item->first, item->second.kind, item->second.bytes});
    }
  }
  return all;
}

std::vector<unknown_object> find_unknown_objects(
    const configured_tracks& present, const configured_tracks& after,
    const std::vector<what_if::assumption>& assumptions) {
  std::set<std::string> known;
  for (const auto& [name, items] : present) {
    known.insert(object_words(items));
  }
  for (const what_if::assumption& each : assumptions) {
    if (const auto found = after.find(each.track); found != after.end()) {
      known.insert(object_words(found->second));
    }
  }
  std::vector<unknown_object> unknown;
  for (const auto& [name, items] : after) {
    const std::string object = object_words(items);
    if (!object.empty() && !known.contains(object)) {
      unknown.push_back({name, object});
    }
  }
  return unknown;
}

}  // namespace ot::trackctl
