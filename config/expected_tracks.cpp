#include "config/expected_tracks.h"

#include <algorithm>
#include <map>
#include <new>
#include <string>
#include <string_view>

#include "platform/status.h"

namespace ot {
namespace {

std::map<std::string, expected_track, std::less<>> expected;

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
    expected.insert_or_assign(name, track);
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
  std::uint32_t count = hash_db_count(tracks_table);
  for (const auto& [name, track] : expected) {
    const bool present = hash_db_get_track_item(name.c_str()) != nullptr;
    count += static_cast<std::uint32_t>(track.present) - static_cast<std::uint32_t>(present);
  }
  return count;
}

bool expects_operation(std::int32_t operation) noexcept {
  return std::any_of(expected.begin(), expected.end(), [operation](const auto& each) {
    return each.second.present && each.second.operation == operation;
  });
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
}

}  // namespace ot
