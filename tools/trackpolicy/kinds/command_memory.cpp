// A line of JSON for each policy, and one that says which process its command is.
#include "tools/trackpolicy/kinds/command_memory.h"

#include <algorithm>
#include <set>
#include <string>
#include <string_view>
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
  const std::string text = on.recall(name);
  const std::size_t end = std::min(text.find('\n'), text.size());
  auto kept = nlohmann::json::parse(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(end),
                                    nullptr, false);
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
  found.what.begun = kept.value("begun", nlohmann::json()) == true;
  if (found.what.begun && end < text.size()) {
    on.end_leftover(std::string_view(text).substr(end + 1));
  }
  return found;
}

}  // namespace

void remember_command(host& on, const policy& of, const command_memory& what) {
  const nlohmann::json kept{
      {"track", of.track}, {"told", word_of(what.told)}, {"begun", what.begun}};
  on.remember(of.name, kept.dump() + '\n');
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
