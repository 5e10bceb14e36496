#include "tools/trackctl/explain/rules.h"

namespace ot::trackctl::explain {

bool counts_as_up(const site& tracks, track_type type, const member& each) {
  const track_facts* track = find(tracks, each.name);
  if (is_boolean(type)) {
    const bool up = track != nullptr && track->state == track_state::up;
    return up != (each.value != 0);
  }
  return track != nullptr && track->source == track_state::up;
}

tally count_members(const track_facts& list, const std::function<bool(const member&)>& is_up) {
  tally counted;
  std::uint32_t sum = 0;  // as wide as the service's
  for (const member& each : list.members) {
    ++counted.count;
    if (is_up(each)) {
      ++counted.up;
      sum += each.value;
    }
  }
  counted.value = sum;
  if (list.type == track_type::threshold_percentage && counted.count != 0) {
    counted.value = static_cast<std::uint64_t>(static_cast<double>(counted.up) * 100.0 /
                                               static_cast<double>(counted.count));
  }
  return counted;
}

bool is_up(const track_facts& list, const tally& counted) {
  if (counted.count == 0) {
    return false;
  }
  switch (list.type) {
    case track_type::boolean_and:
      return counted.up == counted.count;
    case track_type::boolean_or:
      return counted.up != 0;
    default:
      return counted.value >= list.limit_down && counted.value <= list.limit_up;
  }
}

}  // namespace ot::trackctl::explain
