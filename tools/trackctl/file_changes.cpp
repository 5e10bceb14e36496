// Deletes come in stages before everything else, so that a configuration of as many tracks as there
// can be may change; and what each track needs comes in the stages that it needs alone.
#include "tools/trackctl/file_changes.h"

#include <algorithm>
#include <set>

#include "tools/trackctl/cycles.h"

namespace ot::trackctl {
namespace {

constexpr std::size_t tracks_max = 1500;

std::uint32_t stages_of(const commit& changes) {
  return changes.empty() ? 0 : changes.back().stage + 1;
}

// Commits of different tracks as one: those that need fewer stages come in the last ones.
class joined_commit {
 public:
  void add(commit changes) {
    stages_ = std::max(stages_, stages_of(changes));
    parts_.push_back(std::move(changes));
  }
  // As stages from `first` on.
  void append_to(commit& ret, std::uint32_t first) {
    for (commit& part : parts_) {
      const std::uint32_t later = first + stages_ - stages_of(part);
      for (ledger_proposal& change : part) {
        change.stage += later;
        ret.push_back(std::move(change));
      }
    }
  }
  [[nodiscard]] std::uint32_t stages() const noexcept { return stages_; }

 private:
  std::vector<commit> parts_;
  std::uint32_t stages_ = 0;
};

std::string object_words(const track_items& items) {
  return write_object(items).value_or("(items that no words make)");
}

void describe_delay(const char* what, std::uint32_t before, std::uint32_t after, std::string& ret) {
  if (before != after) {
    ret += (ret.empty() ? "" : ", ") + std::string(what) + ' ' + std::to_string(before) + " → " +
           std::to_string(after);
  }
}

std::string describe_change(const track_items& before, const track_items& after) {
  const std::string was = object_words(before);
  const std::string becomes = object_words(after);
  std::string text = was == becomes ? "" : was + " → " + becomes;
  describe_delay("delay-up", delays_of(before).up, delays_of(after).up, text);
  describe_delay("delay-down", delays_of(before).down, delays_of(after).down, text);
  return text.empty() ? "(items that no words make) → " + becomes : text;
}

std::string whole_line(const std::string& name, const track_items& items) {
  return write_track_line(name, items).value_or(name + " (items that no words make)");
}

// Walks from lists to their members, each once, however many ways lead to it.
class cycle_search {
 public:
  explicit cycle_search(const members_reader& members) : members_(members) {}

  // The tracks that the walk from `track` came back to.
  std::vector<std::string> closed_by(const std::string& track) {
    closed_.clear();
    walk(track);
    return closed_;
  }

 private:
  enum class progress { begun, done };

  void walk(const std::string& track) {
    const auto [known, fresh] = progress_.emplace(track, progress::begun);
    if (!fresh) {
      if (known->second == progress::begun) {
        closed_.push_back(track);
      }
      return;
    }
    for (const std::string& member : members_(track)) {
      walk(member);
    }
    progress_[track] = progress::done;
  }

  const members_reader& members_;
  std::map<std::string, progress> progress_;
  std::vector<std::string> closed_;
};

std::set<std::string, std::less<>> names_of(const std::vector<file_track>& wanted) {
  std::set<std::string, std::less<>> names;
  for (const file_track& track : wanted) {
    names.insert(track.said.name);
  }
  return names;
}

// Of at least one.
std::string missing_text(const std::vector<std::string>& missing) {
  constexpr std::size_t most_named = 4;
  if (missing.size() == 1) {
    return "there is no track \"" + missing[0] + "\" yet";
  }
  const std::size_t named = missing.size() > most_named ? most_named - 1 : missing.size();
  std::string names;
  for (std::size_t at = 0; at < named; ++at) {
    names += (at == 0 ? "" : ", ") + missing[at];
  }
  const std::string more = std::to_string(missing.size() - named);
  return "there are no such tracks yet: " + names + (more == "0" ? "" : " and " + more + " more");
}

}  // namespace

file_changes plan_file(const configured_tracks& present, const std::vector<file_track>& wanted,
                       bool prune) {
  file_changes plan;
  joined_commit ends;
  joined_commit sets;
  for (const file_track& track : wanted) {
    const said_track& said = track.said;
    const auto known = present.find(said.name);
    const track_items before = known == present.end() ? track_items{} : known->second;
    commit changes = plan_set(said.name, before, said.type, said.delays);
    if (changes.empty()) {
      continue;
    }
    const bool is_new = before.empty();
    plan.lines.push_back(is_new ? "+ " + said.name + ' ' + said.words
                                : "~ " + said.name + ' ' + describe_change(before, said.items()));
    ++(is_new ? plan.made : plan.changed);
    sets.add(std::move(changes));
  }
  const auto names = prune ? names_of(wanted) : std::set<std::string, std::less<>>{};
  for (const auto& [name, items] : present) {
    if (prune && !names.contains(name)) {
      plan.lines.push_back("- " + whole_line(name, items));
      ++plan.deleted;
      ends.add(plan_delete(name, items));
    }
  }
  ends.append_to(plan.changes, 0);
  sets.append_to(plan.changes, ends.stages());
  std::stable_sort(plan.changes.begin(), plan.changes.end(),
                   [](const auto& one, const auto& other) { return one.stage < other.stage; });
  return plan;
}

configured_tracks configuration_after(const configured_tracks& present,
                                      const std::vector<file_track>& wanted, bool prune) {
  configured_tracks after = prune ? configured_tracks{} : present;
  for (const file_track& track : wanted) {
    after.insert_or_assign(track.said.name, track.said.items());
  }
  return after;
}

std::vector<std::string> find_conflicts(const configured_tracks& after,
                                        const std::vector<file_track>& wanted) {
  std::vector<std::string> found;
  if (after.size() > tracks_max) {
    found.push_back("there would be " + std::to_string(after.size()) + " tracks, and " +
                    std::to_string(tracks_max) + " can be");
  }
  for (const file_track& track : wanted) {
    const std::vector<std::string> members = list_members(track.said.items());
    if (std::find(members.begin(), members.end(), track.said.name) != members.end()) {
      found.push_back(track.place + ": list \"" + track.said.name +
                      "\" names itself as a member, which no list can");
    }
  }
  std::map<std::string, std::vector<std::string>> followers;  // of what only one should follow
  for (const auto& [name, items] : after) {
    if (exclusive_object object = find_exclusive_object(items); object.kind != nullptr) {
      followers[std::move(object.text)].push_back(name);
    }
  }
  for (const file_track& track : wanted) {
    const exclusive_object object = find_exclusive_object(track.said.items());
    if (object.kind == nullptr || track.said.shared || followers[object.text].size() < 2) {
      continue;
    }
    const auto& names = followers[object.text];
    const auto other = std::find_if(names.begin(), names.end(),
                                    [&](const auto& name) { return name != track.said.name; });
    found.push_back(track.place + ": track \"" + *other + "\" follows " + object.text +
                    " too, and " + object.kind->only_one);
  }
  return found;
}

std::vector<std::string> find_warnings(const configured_tracks& after,
                                       const std::vector<file_track>& wanted) {
  std::vector<std::string> found;
  const members_reader members = [&after](const std::string& track) {
    const auto known = after.find(track);
    return known == after.end() ? std::vector<std::string>{} : list_members(known->second);
  };
  cycle_search search(members);
  std::set<std::string> told;  // the tracks of cycles that were told
  for (const file_track& track : wanted) {
    const std::string& name = track.said.name;
    for (const std::string& note : track.said.notes) {
      found.push_back(track.place + ": note: " + note);
    }
    std::vector<std::string> missing = members(name);
    std::erase_if(missing, [&](const std::string& member) { return after.contains(member); });
    if (!missing.empty()) {
      found.push_back(track.place + ": warning: " + missing_text(missing));
    }
    for (const std::string& list : search.closed_by(name)) {
      if (!told.contains(list)) {
        const std::vector<std::string> cycle = find_cycle(list, members);
        told.insert(cycle.begin(), cycle.end());
        found.push_back(track.place + ": " + cycle_warning(cycle));
      }
    }
  }
  return found;
}

}  // namespace ot::trackctl
