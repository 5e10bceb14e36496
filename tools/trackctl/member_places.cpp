#include "tools/trackctl/member_places.h"

#include <algorithm>

#include "tools/json.h"
#include "tools/trackctl/track.h"

namespace ot::trackctl {

std::map<std::string, member_places, std::less<>> read_member_places() {
  std::map<std::string, member_places, std::less<>> places;
  read_track_records([&places](const track_info__& record) {
    member_places& of_track = places[std::string(record.TrackeName.view())];
    const auto shown = track_to_json(record, {});
    for (const auto& member : shown["members"]) {
      of_track.emplace(member["name"].get<std::string>(), of_track.size());
    }
  });
  return places;
}

void put_in_order(const member_places& places, std::vector<std::string>& members) {
  const auto place = [&places](const std::string& member) {
    const auto found = places.find(member);
    return found == places.end() ? places.size() : found->second;
  };
  std::stable_sort(members.begin(), members.end(), [&place](const auto& one, const auto& other) {
    return place(one) < place(other);
  });
}

}  // namespace ot::trackctl
