// A row of fields is an array: both ends are of the same build.
#include "tools/what_if/wire.h"

#include "tools/json.h"

namespace ot::what_if {
namespace {

using nlohmann::json;

json binary(const std::vector<std::byte>& bytes) {
  const auto* first = reinterpret_cast<const std::uint8_t*>(bytes.data());
  return json::binary({first, first + bytes.size()});
}

std::vector<std::byte> bytes_of(const json& from) {
  std::vector<std::byte> bytes;
  for (const std::uint8_t byte : from.get_binary()) {
    bytes.push_back(static_cast<std::byte>(byte));
  }
  return bytes;
}

template <typename Row, typename Write>
json rows(const std::vector<Row>& from, Write&& write) {
  json all = json::array();
  for (const Row& row : from) {
    all.push_back(write(row));
  }
  return all;
}

template <typename Row, typename Read>
std::vector<Row> rows_of(const json& from, Read&& read) {
  std::vector<Row> all;
  for (const json& row : from) {
    all.push_back(read(row));
  }
  return all;
}

json write_track(const present_track& track) {
  json row = {track.name, track.state, track.source};
  if (track.delay) {
    row.push_back(track.delay->to);
    row.push_back(track.delay->remaining_ms);
  }
  return row;
}

present_track read_track(const json& row) {
  present_track track{row.at(0), row.at(1), row.at(2), std::nullopt};
  if (row.size() > 3) {
    track.delay = running_delay{row.at(3), row.at(4)};
  }
  return track;
}

json write_change(const ledger_proposal& change) {
  return {change.path, change.remove, change.kind, binary(change.value), change.stage};
}

ledger_proposal read_change(const json& row) {
  return {row.at(0), row.at(1), row.at(2), bytes_of(row.at(3)), row.at(4)};
}

json parse(std::string_view bytes) {
  return json::from_cbor(bytes.begin(), bytes.end());
}

}  // namespace

std::vector<std::uint8_t> encode(const question& from) {
  return json::to_cbor({{"items", rows(from.items,
                                       [](const stored_item& item) {
                                         return json{item.path, item.kind, binary(item.bytes)};
                                       })},
                        {"tracks", rows(from.tracks, write_track)},
                        {"changes", rows(from.changes, write_change)},
                        {"assumptions", rows(from.assumptions, [](const assumption& each) {
                           return json{each.track, each.state};
                         })}});
}

std::vector<std::uint8_t> encode(const answer& from) {
  return json::to_cbor(
      {{"changes", rows(from.changes,
                        [](const change& each) {
                          return json{each.after_ms, each.track, each.from, each.to, each.anyway};
                        })},
       {"unmet", from.unmet},
       {"refusal", from.refusal}});
}

question decode_question(std::string_view bytes) {
  const json from = parse(bytes);
  return {rows_of<stored_item>(from.at("items"),
                               [](const json& row) {
                                 return stored_item{row.at(0), row.at(1), bytes_of(row.at(2))};
                               }),
          rows_of<present_track>(from.at("tracks"), read_track),
          rows_of<ledger_proposal>(from.at("changes"), read_change),
          rows_of<assumption>(from.at("assumptions"), [](const json& row) {
            return assumption{row.at(0), row.at(1)};
          })};
}

answer decode_answer(std::string_view bytes) {
  const json from = parse(bytes);
  return {rows_of<change>(from.at("changes"),
                          [](const json& row) {
                            return change{row.at(0), row.at(1), row.at(2), row.at(3), row.at(4)};
                          }),
          from.at("unmet"), from.at("refusal")};
}

}  // namespace ot::what_if
