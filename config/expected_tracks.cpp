#include "config/expected_tracks.h"

#include <cstdint>
#include <functional>
#include <map>
#include <new>
#include <string>
#include <string_view>

#include "platform/status.h"

namespace ot {
namespace {

// With what a verifier asks of all of them together, since a commit may change every track.
std::map<std::string, expected_track, std::less<>> expected;
std::int64_t more_tracks = 0;                      // than there are now
std::map<std::int32_t, std::uint32_t> operations;  // by how many of them each is probed

// The track as expected so far.
expected_track present_track(const char* name) noexcept {
  const auto known = expected.find(std::string_view{name});
  if (known != expected.end()) {
    return known->second;
  }
  const ot_track* track = hash_db_get_track_item(name);
  return {.present = track != nullptr,
          .configured_type = track == nullptr ? 0 : track->configured_type};
}

int expect(const char* name, const expected_track& track) noexcept {
  try {
    const auto [place, added] = expected.try_emplace(name);
    expected_track& before = place->second;
    const bool was_present = added ? hash_db_get_track_item(name) != nullptr : before.present;
    if (track.present) {
      ++operations[track.operation];
    }
    if (!added && before.present) {
      --operations[before.operation];
    }
    more_tracks += static_cast<int>(track.present) - static_cast<int>(was_present);
    before = track;
  } catch (const std::bad_alloc&) {
    return no_memory;
  }
  return status_ok;
}

bool is_delete(const ledger_change& change) noexcept {
  return (change.event & ledger_event_delete) != 0;
}

const char* track_of(const ledger_change& change) noexcept {
  return change.fields[0].text;
}

}  // namespace

const expected_track* find_expected_track(const char* name) noexcept {
  const auto known = expected.find(std::string_view{name});
  return known == expected.end() ? nullptr : &known->second;
}

std::uint32_t expected_track_count() noexcept {
  return static_cast<std::uint32_t>(hash_db_count(tracks_table) + more_tracks);
}

bool expects_operation(std::int32_t operation) noexcept {
  const auto known = operations.find(operation);
  return known != operations.end() && known->second > 0;
}

int expect_existence(const ledger_change& change) {
  return is_delete(change) ? expect(track_of(change), {.present = false, .keeps_object = false})
                           : status_ok;
}

int expect_record(const ledger_change& change) {
  expected_track track = present_track(track_of(change));
  track.present = track.present || !is_delete(change);
  return expect(track_of(change), track);
}

int expect_type(const ledger_change& change) {
  if (is_delete(change)) {
    return status_ok;
  }
  expected_track track = present_track(track_of(change));
  track.present = true;
  track.configured_type = change.fields[1].number;
  return expect(track_of(change), track);
}

int expect_operation(const ledger_change& change) {
  expected_track track = present_track(track_of(change));
  track.keeps_object = false;
  track.operation = 0;
  if (!is_delete(change)) {
    track.present = true;
    track.configured_type = change.fields[1].number;
    track.operation = static_cast<std::int32_t>(change.new_value->as_u32());
  }
  return expect(track_of(change), track);
}

void forget_expected_tracks() noexcept {
  expected.clear();
  operations.clear();
  more_tracks = 0;
}

}  // namespace ot
