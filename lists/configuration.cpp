// From a member item to the list track's record.

#include "lists/configuration.h"

#include <cstring>

#include "config/verifiers.h"
#include "core/debug.h"
#include "lists/boolean_list.h"
#include "lists/members.h"
#include "lists/threshold_list.h"
#include "platform/component_status.h"
#include "platform/err_string.h"
#include "state/ledger_state.h"
#include "state/list_evaluation.h"
#include "state/track_record.h"

namespace ot {
namespace {

// One member item, taken apart.
struct member_item {
  const char* track;
  track_type type;
  const char* object;
  std::uint32_t value;
};

std::uint32_t number_of(const ledger_value* value) noexcept {
  return value == nullptr ? 0 : value->as_u32();
}

void trace_if(const char* format, const char* name) noexcept {
  if (format != nullptr) {
    OT_TRACE_DETAIL(format, name);
  }
}

void trace_item(const char* format, const list_kind& kind, const member_item& item) noexcept {
  if (format != nullptr) {
    OT_TRACE_DETAIL(format, kind.apply_name, item.track, static_cast<int>(item.type), item.object,
                    static_cast<int>(item.value));
  }
}

int add(const list_kind& kind, const member_item& item, const char* failed) {
  const int status = kind.create(item.track, item.type, item.object, item.value);
  if (status != status_ok) {
    OT_TRACE_ERROR(failed, kind.apply_name, err_string(status));
    return status;
  }
  object_tracking_calc_tracks_state();
  return status_ok;
}

int set_member(const list_kind& kind, const member_item& item, const ledger_value* old_value) {
  trace_item(kind.set_item, kind, item);
  trace_if(kind.set_event, kind.apply_name);
  if (old_value != nullptr) {
    if (old_value->as_u32() == item.value) {
      OT_TRACE_DETAIL(kind.unchanged, kind.apply_name);
      return status_ok;
    }
    trace_if(kind.removing, kind.apply_name);
    kind.remove(item.track, item.object);
  }
  trace_if(kind.adding, kind.apply_name);
  return add(kind, item, kind.set_failed);
}

int delete_member(const list_kind& kind, const member_item& item, const ledger_change& change) {
  OT_TRACE_DETAIL("(%s) :LEDGER_EVENT_DELETE", kind.apply_name);
  if (kind.traces_deleted_values) {
    OT_TRACE_DETAIL("(%s) :info->oldvalue:%d", kind.apply_name,
                    static_cast<int>(number_of(change.old_value)));
    OT_TRACE_DETAIL("(%s) :info->newvalue:%d", kind.apply_name,
                    static_cast<int>(number_of(change.new_value)));
  }
  kind.remove(item.track, item.object);
  object_tracking_calc_tracks_state();
  return status_ok;
}

int make_track(const list_creation& kind, const char* name, track_type type, const char* object,
               std::uint32_t value) {
  ot_track track;
  int status = new_track_record(name, type, track_state::unknown, kind.create_name, &track);
  if (status != status_ok) {
    return status;
  }
  track.configured_type = static_cast<std::uint32_t>(type);
  take_over_published_state(track);
  track.source_state = track.state;  // a restart computes it again, and reports what differs
  if (object != nullptr && kind.add(track, object, value) != status_ok) {
    OT_TRACE_ERROR(kind.add_failed, kind.create_name);
    release_track_timers(track);
    return no_memory;
  }
  status = add_track_record(track, kind.create_name);
  if (status != status_ok) {
    free_list_members(track);
  }
  return status;
}

}  // namespace

int object_tracking_type_list_object_verify(const ledger_change& change, ledger_verdict& verdict) {
  OT_TRACE_ENTRY();
  const ledger_path_field* name = change.field(0);
  const ledger_path_field* member = change.field(2);
  if (name == nullptr || member == nullptr) {
    return invalid_argument;
  }
  if (creates_or_sets(change) && std::strcmp(name->text, member->text) == 0) {
    return refuse(list_names_itself, verdict);
  }
  return accept(verdict);
}

int object_tracking_type_list_object_apply(const ledger_change& change) {
  OT_TRACE_ENTRY();
  const ledger_path_field* type = change.field(1);
  if (type == nullptr || type->number == 0) {
    return invalid_argument;
  }
  switch (static_cast<track_type>(type->number)) {
    case track_type::boolean_and:
    case track_type::boolean_or:
      return object_tracking_type_bool_object_apply(change);
    case track_type::threshold_weight:
    case track_type::threshold_percentage:
      return object_tracking_type_threshold_object_apply(change);
    default:
      return status_ok;
  }
}

int apply_list_member(const list_kind& kind, const ledger_change& change) {
  OT_TRACE_DETAIL("Entering (%s) : ", kind.apply_name);
  const ledger_path_field* track = change.field(0);
  const ledger_path_field* type = change.field(1);
  const ledger_path_field* object = change.field(2);
  if (track == nullptr || type == nullptr || type->number == 0 || object == nullptr) {
    return invalid_argument;
  }
  const member_item item{track->text, static_cast<track_type>(type->number), object->text,
                         number_of(change.new_value)};
  if ((change.event & ledger_event_create) != 0) {
    trace_item(kind.create_item, kind, item);
    trace_if(kind.create_event, kind.apply_name);
    return add(kind, item, kind.create_failed);
  }
  if ((change.event & ledger_event_set) != 0) {
    return set_member(kind, item, change.old_value);
  }
  return (change.event & ledger_event_delete) != 0 ? delete_member(kind, item, change) : status_ok;
}

int create_list_track(const list_creation& kind, const char* name, track_type type,
                      const char* object, std::uint32_t value) {
  OT_TRACE_DETAIL("(%s) : track %s", kind.create_name, name);
  ot_track* track = hash_db_get_track_item(name);
  if (track == nullptr) {
    return make_track(kind, name, type, object, value);
  }
  become_list(*track, type);
  track->configured_type = static_cast<std::uint32_t>(type);
  if (object != nullptr && kind.add(*track, object, value) != status_ok) {
    OT_TRACE_ERROR(kind.add_failed, kind.create_name);
    return no_memory;
  }
  return status_ok;
}

}  // namespace ot
