// What is particular to boolean lists: their texts, and the "not" flag as the member's value.

#include "lists/boolean_list.h"

#include "core/debug.h"
#include "lists/configuration.h"
#include "lists/members.h"
#include "platform/status.h"

namespace ot {
namespace {

void remove_member(const char* name, const char* object) {
  delete_track_bool_object(name, object);
}

constexpr list_kind boolean_items = {
    .apply_name = "object_tracking_type_bool_object_apply",
    .create_item = "(%s) :track = %s, bool type %d object = %s, not = %d",
    .set_item = "(%s) : track = %s, bool type %d object = %s, not = %d",
    .create_event = "(%s) :LEDGER_EVENT_CREATE",
    .set_event = "(%s) :LEDGER_EVENT_SET",
    .unchanged = "(%s) config not changed, do nothing",
    .removing = "(%s) delete",
    .adding = "(%s) create",
    .create_failed = "(%s) : object_tracking_type_bool_create failed - %s",
    .set_failed = "(%s) : object_tracking_type_bool_create failed - %s",
    .traces_deleted_values = false,
    .create = object_tracking_type_bool_create,
    .remove = remove_member,
};

constexpr list_creation boolean_creation = {
    .create_name = "object_tracking_type_bool_create",
    .add_failed = "(%s) : object_tracking_add_object_to_track failed - no memory to add item ",
    .add = object_tracking_add_object_to_track,
};

}  // namespace

int object_tracking_type_bool_object_apply(const ledger_change& change) {
  return apply_list_member(boolean_items, change);
}

int object_tracking_type_bool_create(const char* name, track_type type, const char* object_name,
                                     std::uint32_t with_not) {
  return create_list_track(boolean_creation, name, type, object_name, with_not);
}

int object_tracking_add_object_to_track(ot_track& track, const char* object_name,
                                        std::uint32_t with_not) {
  if (!add_list_member(track, object_name, with_not != 0 ? 1 : 0)) {
    OT_TRACE_ERROR("(%s) : Memory allocation failed.", __func__);
    return no_memory;
  }
  return status_ok;
}

int delete_track_bool_object(const char* name, const char* object_name) {
  OT_TRACE_DETAIL("(%s) : object %s", __func__, object_name);
  ot_track* track = hash_db_get_track_item(name);
  if (track != nullptr && is_list_type(track->type)) {
    remove_list_member(*track, object_name);
  }
  return status_ok;
}

int object_tracking_delete_track_bool_objects(ot_track* track) {
  OT_TRACE_ENTRY();
  return track == nullptr ? status_ok : clear_list(*track);
}

int object_tracking_delete_track_bool_objects_by_name(const char* name) {
  OT_TRACE_ENTRY();
  ot_track* track = hash_db_get_track_item(name);
  if (track == nullptr || !is_list_type(track->type)) {
    return status_ok;
  }
  const int status = object_tracking_delete_track_bool_objects(track);
  if (status == status_ok) {
    track->type = track_type::none;
  }
  return status;
}

}  // namespace ot
