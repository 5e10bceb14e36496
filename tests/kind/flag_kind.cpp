// A kind of tracks that the service does not have: a flag in the configuration, up while it is 1.
// All of it stands in this file and in this program's list of kinds.
#include <array>
#include <cstdio>

#include "config/verifiers.h"
#include "core/track.h"
#include "core/track_kind.h"
#include "oper/records/track_records.h"
#include "platform/ledger_config.h"
#include "platform/status.h"
#include "show/view.h"
#include "state/publication.h"
#include "state/track_record.h"
#include "tests/kind/flag_kind.h"

namespace ot {
namespace test {

flag_kind_calls flag_calls;

namespace {

constexpr track_kind_type types[] = {{flag_type, "flag", "Flag"}};

int report(const char* name, track_state state) {
  hash_db_get_track_item(name)->source_state = state;
  return object_tracking_set_track_state_in_ledger(name, state);
}

int apply_flag(const ledger_change& change) {
  const char* name = change.fields[0].text;
  if (change.new_value == nullptr) {
    return report(name, track_state::unknown);
  }
  const track_state state = change.new_value->as_u32() == 1 ? track_state::up : track_state::down;
  if (hash_db_get_track_item(name) == nullptr) {
    ot_track track;
    int status = new_track_record(name, flag_type, state, __func__, &track);
    status = status == status_ok ? add_track_record(track, __func__) : status;
    if (status != status_ok) {
      return status;
    }
    set_configured_type(name, change.fields[1].number);
  }
  return report(name, state);
}

constexpr ledger_registration leaves[] = {
    {"track/*/type/flag/#/value", ledger_row_handled, object_tracking_type_verify, apply_flag},
};

constexpr start_step tables[] = {
    {"flag table",
     [](const start_context&) {
       ++flag_calls.tables_created;
       return status_ok;
     },
     []() noexcept { ++flag_calls.tables_dropped; }},
};

}  // namespace
}  // namespace test

extern const track_kind flag_kind = {
    .types = test::types,
    .leaves = test::leaves,
    .least_delay = 3,
    .detach =
        [](ot_track& track) {
          test::flag_calls.detached.push_back(track.name.c_str());
          return test::flag_calls.detach_result;
        },
    .detach_failed = "(%s) : the flag stays - %s",
    .record_key = "type-flag",
    .show_object = [](const track_info_brief__&) { return object_column("a flag"); },
    .show_detail =
        [](const printed_track& track) {
          print_state(track, track.record.TrackState);
          return rest_of_record::printed;
        },
    .tables = test::tables,
};

extern const track_kind boolean_kind;
extern const track_kind threshold_kind;
extern const track_kind interface_kind;
extern const track_kind route_kind;
extern const track_kind probe_kind;
extern const track_kind bfd_kind;

std::span<const track_kind* const> track_kinds() noexcept {
  static constexpr std::array kinds = {&boolean_kind, &threshold_kind, &interface_kind, &route_kind,
                                       &probe_kind,   &bfd_kind,       &flag_kind};
  return kinds;
}

}  // namespace ot
