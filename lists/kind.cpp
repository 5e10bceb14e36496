// Boolean and threshold lists as kinds of tracks.

#include <cstdio>

#include "config/verifiers.h"
#include "core/debug.h"
#include "core/track.h"
#include "core/track_kind.h"
#include "lists/boolean_list.h"
#include "lists/configuration.h"
#include "lists/members.h"
#include "lists/threshold_list.h"
#include "platform/status.h"
#include "show/view.h"
#include "state/list_evaluation.h"

namespace ot {
namespace {

constexpr track_kind_type boolean_types[] = {
    {track_type::boolean_and, "boolean and", "List boolean and"},
    {track_type::boolean_or, "boolean or", "List boolean or"},
};
constexpr track_kind_type threshold_types[] = {
    {track_type::threshold_weight, "threshold weight", "List threshold weight"},
    {track_type::threshold_percentage, "threshold percentage", "List threshold percentage"},
};

// The items that both kinds have stand with the first.
constexpr ledger_registration member_leaves[] = {
    {"track/*/type/list/#1/a", ledger_row_handled, object_tracking_type_verify,
     ledger_nothing_to_apply},
    {"track/*/type/list/#1/object/*/a", ledger_row_handled, object_tracking_type_list_object_verify,
     object_tracking_type_list_object_apply},
};
constexpr ledger_registration limits_leaves[] = {
    {"track/*/type/list/#1/thld_limits/val_up/#/val_dn", ledger_row_handled,
     object_tracking_type_threshold_object_limits_verify,
     object_tracking_type_threshold_object_crt_apply, ledger_turn::late},
};

// --- Records -------------------------------------------------------------------------------------

bool is_up(const track_name& name) noexcept {
  const ot_track* track = hash_db_get_track_item(name.c_str());
  return track != nullptr && track->state == track_state::up;
}

void set_value(bool_track_info__& member, std::uint32_t value) noexcept {
  member.WithNot = value != 0;
}
void set_value(threshold_track_info__& member, std::uint32_t value) noexcept {
  member.Weight = value;
}

int record_without_memory() noexcept {
  OT_TRACE_ERROR("(%s) : Failed to alloc memory for bool_track_info", "ot_fill_track_info");
  return no_memory;
}

template <typename Member>
int fill_members(const ot_track& track, Member** end) noexcept {
  for (const list_member* from = track.object.list.members; from != nullptr; from = from->next) {
    auto* member = brec_alloc<Member>();
    if (member == nullptr) {
      return record_without_memory();
    }
    member->ObjectName.assign(from->name.view());
    member->TrackState = is_up(from->name);
    set_value(*member, from->value);
    *end = member;
    end = &member->next;
  }
  return status_ok;
}

int fill_limit(std::uint32_t limit, std::uint32_t** ret) noexcept {
  *ret = brec_alloc<std::uint32_t>();
  if (*ret == nullptr) {
    return record_without_memory();
  }
  **ret = limit;
  return status_ok;
}

int fill_boolean(const ot_track& track, track_info__& record) noexcept {
  return fill_members(track, &record.BoolTracks);
}

int fill_threshold(const ot_track& track, track_info__& record) noexcept {
  int status = fill_limit(track.threshold_up, &record.ThresholdUp);
  if (status == status_ok) {
    status = fill_limit(track.threshold_down, &record.ThresholdDown);
  }
  return status == status_ok ? fill_members(track, &record.ThresholdTracks) : status;
}

// --- show ----------------------------------------------------------------------------------------

object_column show_list(const track_info_brief__&) {
  return object_column("list");
}

const char* negation(const bool_track_info__& member) noexcept {
  return member.WithNot ? "not " : "";
}
const char* negation(const threshold_track_info__&) noexcept {
  return "";
}

template <typename Member>
rest_of_record print_list(const printed_track& track, const Member* members) {
  print_state(track, track.record.TrackState);
  print_changes(track.record);
  for (; members != nullptr; members = members->next) {
    std::printf("\t\tobject %s %s%s\n", members->ObjectName.c_str(), negation(*members),
                members->TrackState ? "UP" : "DOWN");
  }
  return rest_of_record::printed;
}

rest_of_record show_boolean(const printed_track& track) {
  return print_list(track, track.record.BoolTracks);
}
rest_of_record show_threshold(const printed_track& track) {
  return print_list(track, track.record.ThresholdTracks);
}

}  // namespace

extern const track_kind boolean_kind = {
    .types = boolean_types,
    .leaves = member_leaves,
    .detach = [](ot_track& track) { return object_tracking_delete_track_bool_objects(&track); },
    .detach_failed = "(%s) : object_tracking_delete_track_bool_objects failed - %s",
    .release_object = free_list_members,
    .calculate = object_tracking_calc_bool_track_state,
    .fill_detail = fill_boolean,
    .show_object = show_list,
    .show_detail = show_boolean,
};

extern const track_kind threshold_kind = {
    .types = threshold_types,
    .leaves = limits_leaves,
    .detach = [](ot_track& track) { return ot_thld_del_track_objects(&track); },
    .detach_failed = "(%s) : Delete object from track: failed - %s",
    .release_object = free_list_members,
    .calculate = object_tracking_calc_thld_track_state,
    .fill_detail = fill_threshold,
    .show_object = show_list,
    .show_detail = show_threshold,
};

}  // namespace ot
