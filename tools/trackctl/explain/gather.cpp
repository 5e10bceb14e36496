// The configuration, the states and the records of all tracks take three requests, or a few more;
// only what the explained track stands on is looked at beyond them.
#include "tools/trackctl/explain/gather.h"

#include <algorithm>
#include <deque>

#include "tools/trackctl/command.h"
#include "tools/trackctl/configuration.h"
#include "tools/trackctl/explain/objects.h"
#include "tools/trackctl/states.h"
#include "tools/trackctl/track.h"
#include "tools/trackctl/track_line.h"

namespace ot::trackctl::explain {
namespace {

template <typename Member>
void take_members(const Member* from, std::vector<member>& ret) {
  for (; from != nullptr; from = from->next) {
    std::uint32_t value = 0;
    if constexpr (requires { from->WithNot; }) {
      value = from->WithNot ? 1 : 0;
    } else {
      value = from->Weight;
    }
    ret.push_back({std::string(from->ObjectName.view()), value});
  }
}

// What the track's record, as it is read, has of it. `look`: at its object, too.
void take_record(const track_info__& record, track_facts& ret) {
  ret.type = record.Type;
  if (record.StateChangeCounter != 0) {
    ret.since = static_cast<std::int64_t>(record.SecondsLastChange);
  }
  take_members(record.BoolTracks, ret.members);
  take_members(record.ThresholdTracks, ret.members);
  if (record.ThresholdUp != nullptr && record.ThresholdDown != nullptr) {
    ret.limit_up = *record.ThresholdUp;
    ret.limit_down = *record.ThresholdDown;
  }
}

// The names of tracks by what a record has of them: its first characters. Those of several tracks
// are left out.
using record_names = std::map<std::string, std::string, std::less<>>;

record_names names_in_records(const site& tracks) {
  constexpr std::size_t longest = decltype(track_info__::TrackeName)::capacity - 1;
  record_names names;
  for (const auto& [name, facts] : tracks) {
    const auto [known, fresh] = names.emplace(name.substr(0, longest), name);
    known->second = fresh ? name : "";
  }
  return names;
}

// The track that a record is of, or null.
track_facts* track_of(const track_info__& record, const record_names& names, site& tracks) {
  const auto name = names.find(record.TrackeName.view());
  const auto found = name == names.end() ? tracks.end() : tracks.find(name->second);
  return found == tracks.end() ? nullptr : &found->second;
}

// All tracks, as far as the service reports them; without findings.
site read_all(const configured_tracks& configured) {
  site all;
  for (const what_if::present_track& track : read_states()) {
    track_facts& facts = all[track.name];
    facts.state = track.state;
    facts.source = track.source;
    facts.delay = track.delay;
  }
  const record_names names = names_in_records(all);
  read_track_records([&](const track_info__& record) {
    if (track_facts* const track = track_of(record, names, all)) {
      take_record(record, *track);
    }
  });
  for (const auto& [name, items] : configured) {
    const auto found = all.find(name);
    if (found != all.end()) {
      found->second.delay_up = delays_of(items).up;
      found->second.delay_down = delays_of(items).down;
      if (!is_list_type(found->second.type)) {
        found->second.object = describe_object(items);
      }
    }
  }
  return all;
}

// Those that `name` stands on, and itself.
site reachable(site& all, const std::string& name) {
  site found;
  std::deque<std::string> next{name};
  while (!next.empty()) {
    const auto track = all.find(next.front());
    next.pop_front();
    if (track == all.end() || found.contains(track->first)) {
      continue;
    }
    for (const member& each : track->second.members) {
      next.push_back(each.name);
    }
    found.insert(*track);
  }
  return found;
}

}  // namespace

site gather(const std::string& name) {
  const configured_tracks configured = read_tracks();
  site all = read_all(configured);
  if (!all.contains(name)) {
    throw failure(exit_refused,
                  "there is no track \"" + name + "\"; `trackctl show` lists those there are");
  }
  site found = reachable(all, name);
  object_reader objects;
  const record_names names = names_in_records(all);
  read_track_records([&](const track_info__& record) {
    if (track_facts* const track = track_of(record, names, found)) {
      track->findings = objects.look_at(record);
    }
  });
  return found;
}

}  // namespace ot::trackctl::explain
