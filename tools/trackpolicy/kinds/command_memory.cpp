// A text of JSON for each policy.
#include "tools/trackpolicy/kinds/command_memory.h"

#include <algorithm>
#include <set>
#include <string>
#include <utility>

#include "tools/json.h"

namespace ot::trackpolicy {
namespace {

struct recalled {
  std::string track;
  command_memory what;
};

recalled recall(host& on, const std::string& name) {
  recalled found;
  auto kept = nlohmann::json::parse(on.recall(name), nullptr, false);
  if (!kept.is_object()) {
    return found;
  }
  if (const nlohmann::json track = kept.value("track", nlohmann::json()); track.is_string()) {
    found.track = track.get<std::string>();
  }
  const auto* const word =
      std::find(state_words.begin(), state_words.end(), kept.value("told", nlohmann::json()));
  if (word != state_words.end()) {
    found.what.told = static_cast<track_state>(word - state_words.begin());
  }
  const nlohmann::json leader = kept.value("command", nlohmann::json());
  const nlohmann::json ticks = kept.value("started", nlohmann::json());
  if (leader.is_number_integer() && ticks.is_number_unsigned()) {
    found.what.begun = leader.get<pid_t>();
    on.end_leftover(leader.get<pid_t>(), ticks.get<std::uint64_t>());
  }
  return found;
}

}  // namespace

void remember_command(host& on, const policy& of, const command_memory& what) {
  nlohmann::json kept{{"track", of.track}, {"told", word_of(what.told)}};
  if (what.begun) {
    kept["command"] = *what.begun;
    kept["started"] = *what.begun == 0 ? 0 : on.start_ticks(*what.begun);
  }
  on.remember(of.name, kept.dump());
}

command_memory recall_command(host& on, const policy& of) {
  const recalled found = recall(on, of.name);
  return found.track == of.track ? found.what : command_memory{};
}

void forget_others(host& on, const std::vector<policy>& policies) {
  std::set<std::pair<std::string, std::string>> known;  // with their tracks
  for (const policy& each : policies) {
    if (each.kind == kind_id::command || each.kind == kind_id::frr) {
      known.emplace(each.name, each.track);
    }
  }
  for (const std::string& name : on.remembered()) {
    if (!known.contains({name, recall(on, name).track})) {
      on.forget(name);
    }
  }
}

}  // namespace ot::trackpolicy
