// A running service whose tracks a test makes directly, in whatever state it needs, and the reading
// of its records as a client of the ledger.
#pragma once

#include <chrono>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "oper/records/track_records.h"
#include "platform/memory/alloc_faults.h"
#include "platform/memory/controls.h"
#include "platform/memory/ledger_controls.h"
#include "state/timers.h"
#include "state/track_record.h"
#include "tests/unit/platform/records/samples.h"
#include "tests/unit/service_fixture.h"

namespace ot::test {

using samples::owned_record;
using lines = std::vector<std::string>;

class record_tracks : public running_service {
 protected:
  ot_track& add(const std::string& name, track_type type, track_state state = track_state::up) {
    ot_track made;
    if (new_track_record(name.c_str(), type, state, "test", &made) != 0) {
      throw std::bad_alloc();
    }
    made.state = state;
    made.seconds_last_change = 1'700'000'000;
    if (add_track_record(made, "test") != 0) {
      throw std::bad_alloc();
    }
    return track(name);
  }

  ot_track& add_interface(const std::string& name, const std::string& interface,
                          track_state state = track_state::up) {
    ot_track& made = add(name, track_type::interface, state);
    made.object.interface.name.assign(interface);
    return made;
  }

  // The first member given comes first.
  ot_track& add_list(const std::string& name, track_type type,
                     const std::vector<std::pair<std::string, std::uint32_t>>& members,
                     track_state state = track_state::up) {
    ot_track& made = add(name, type, state);
    list_member** end = &made.object.list.members;
    for (const auto& [member, value] : members) {
      *end = new list_member{nullptr, track_name(member), value};
      end = &(*end)->next;
    }
    return made;
  }

  // The track's delay runs and will publish `waiting`.
  static void start_delay(ot_track& track, std::uint32_t seconds, track_state waiting) {
    ot_timer_ctx* ctx = get_timer_ctx(track.delay_timer);
    ctx->value = static_cast<std::uint32_t>(waiting);
    set_ot_wait_delay_timer(track.delay_timer, seconds, ctx);
  }

  // An interface's service follows a track.
  static ledger_proposal follows(const std::string& interface, const std::string& service,
                                 const std::string& track) {
    return set_text("/cfg/if/act/" + interface + "/" + service + "/track_name", track);
  }

  // The records that a reader of "track/detail/<key>" or "track/brief/<key>" gets; the result in
  // `status`. Empty when there are none.
  template <typename Record>
  owned_record<Record> read(const std::string& path, const brec_descriptor& descriptor) {
    owned_record<Record> record(descriptor);
    ledger_value value;
    status = ledger_item_get(ledger_get_default_conn(),
                             ("oper/object_tracking/gl/track/" + path).c_str(), &value);
    if (status == 0) {
      EXPECT_EQ(value.kind, ledger_kind::record);
      EXPECT_EQ(brec_decode(descriptor, value.bytes(), record.get()), 0);
    }
    return record;
  }
  owned_record<track_info__> detail(const std::string& key) {
    return read<track_info__>("detail/" + key, track_info___brec);
  }
  owned_record<track_info_brief__> brief(const std::string& key) {
    return read<track_info_brief__>("brief/" + key, track_info_brief___brec);
  }

  int status = 0;
};

// The names in a chain of records.
template <typename Record>
std::vector<std::string> names_of(const Record& first) {
  std::vector<std::string> names;
  for (const Record* record = &first; record != nullptr; record = record->next) {
    names.emplace_back(record->TrackeName.view());
  }
  return names;
}

}  // namespace ot::test
