// Reading tracks: each is held as the JSON that trackctl prints, which grows and keeps its meaning.
#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "tools/client/client.h"
#include "tools/json.h"
#include "tools/trackctl/names.h"
#include "tools/trackctl/states.h"
#include "tools/trackctl/track.h"

struct otrack_track {
  std::string name;
  std::uint32_t state = OTRACK_UNKNOWN;
  std::int64_t since = 0;
  std::uint64_t changes = 0;
  std::string kind;
  std::string json;
};

struct otrack_list {
  std::vector<otrack_track> tracks;
};

namespace {

using ot::trackctl::track_extras;

using extras_map = std::map<std::string, track_extras, std::less<>>;

// What stands about tracks beside their records.
struct surroundings {
  extras_map extras = ot::trackctl::read_track_extras();
  // As events tell them: the items of the ledger, and so trackctl, know no unknown of a track that
  // was published once.
  std::map<std::string, std::uint32_t, std::less<>> states;

  surroundings() {
    for (const auto& track : ot::trackctl::read_states()) {
      states.emplace(track.name, static_cast<std::uint32_t>(track.state));
    }
  }
};

otrack_track track_of(const ot::track_info__& record, const surroundings& around) {
  const auto found = around.extras.find(record.TrackeName.view());
  const bool known = found != around.extras.end();
  auto json = track_to_json(record, known ? found->second : track_extras{});
  ot::trackctl::flag_missing_members(json, [&around](std::string_view name) {
    const auto member = around.extras.find(name);
    return member != around.extras.end() && member->second.configured;
  });
  const auto state = around.states.find(record.TrackeName.view());
  const std::uint32_t present = state == around.states.end() ? 0U : state->second;
  json["state"] = otrack_state_word(present);
  const bool published = known && found->second.published;
  return {.name = json.at("name").get<std::string>(),
          .state = present,
          .since = published ? static_cast<std::int64_t>(record.SecondsLastChange) * 1000 : 0,
          .changes = json.at("changes").get<std::uint64_t>(),
          .kind = json.at("type").get<std::string>(),
          .json = json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace)};
}

}  // namespace

int otrack_list_read(otrack_client* client, otrack_list** ret) {
  return ot::client::attempt(client, [ret] {
    ot::client::check_pointer(ret);
    auto list = std::make_unique<otrack_list>();
    const surroundings around;
    ot::trackctl::read_track_records(
        [&](const ot::track_info__& record) { list->tracks.push_back(track_of(record, around)); });
    std::sort(
        list->tracks.begin(), list->tracks.end(),
        [](const otrack_track& one, const otrack_track& other) { return one.name < other.name; });
    *ret = list.release();
  });
}

size_t otrack_list_count(const otrack_list* list) {
  return list->tracks.size();
}

const otrack_track* otrack_list_at(const otrack_list* list, size_t index) {
  return index < list->tracks.size() ? &list->tracks[index] : nullptr;
}

void otrack_list_free(otrack_list* list) {
  delete list;
}

int otrack_get(otrack_client* client, const char* name, otrack_track** ret) {
  return ot::client::attempt(client, [=] {
    ot::client::check_pointer(name);
    ot::client::check_pointer(ret);
    ot::trackctl::check_track_name(name);
    const surroundings around;
    std::unique_ptr<otrack_track> track;
    ot::trackctl::read_track_record(name, [&](const ot::track_info__& record) {
      track = std::make_unique<otrack_track>(track_of(record, around));
    });
    if (track == nullptr) {
      throw ot::client::fail(*client, OTRACK_ERR_NO_TRACK,
                             ("there is no track \"" + std::string(name) + '"').c_str());
    }
    *ret = track.release();
  });
}

void otrack_track_free(otrack_track* track) {
  delete track;
}

const char* otrack_track_name(const otrack_track* track) {
  return track->name.c_str();
}

uint32_t otrack_track_state(const otrack_track* track) {
  return track->state;
}

int64_t otrack_track_since(const otrack_track* track) {
  return track->since;
}

uint64_t otrack_track_changes(const otrack_track* track) {
  return track->changes;
}

const char* otrack_track_kind(const otrack_track* track) {
  return track->kind.c_str();
}

const char* otrack_track_json(const otrack_track* track) {
  return track->json.c_str();
}
