#include "tools/what_if/timeline.h"

#include <functional>
#include <set>

#include "core/track.h"
#include "platform/common/timer_driver.h"

namespace ot::what_if {
namespace {

constexpr std::uint64_t ns_per_ms = 1'000'000;

const char* word_of(track_state state) {
  return state == track_state::up ? "up" : state == track_state::down ? "down" : "unknown";
}

}  // namespace

void timeline::begin() {
  began_ns_ = timer_now_ns();
  known_ = states_now();
}

timeline::states timeline::states_now() {
  states now;
  for (auto* track = hash_db_first_data<ot_track>(tracks_table); track != nullptr;
       track = hash_db_next_data<ot_track>(tracks_table)) {
    now.emplace(std::string(track->name.view()), word_of(track->state));
  }
  return now;
}

void timeline::look(answer& ret) {
  const std::uint64_t after = (timer_now_ns() - began_ns_) / ns_per_ms;
  states now = states_now();
  std::set<std::string, std::less<>> names;
  for (const states* each : {&known_, &now}) {
    for (const auto& [name, state] : *each) {
      names.insert(name);
    }
  }
  for (const std::string& name : names) {
    const auto before = known_.find(name);
    const auto found = now.find(name);
    const std::string from = before == known_.end() ? "new" : before->second;
    const std::string to = found == now.end() ? "gone" : found->second;
    if (from != to) {
      ret.changes.push_back({after, name, from, to});
    }
  }
  known_ = std::move(now);
}

}  // namespace ot::what_if
