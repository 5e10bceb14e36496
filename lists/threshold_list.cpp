// What is particular to threshold lists: their limits, their texts, and the weight as the member's
// value.

#include "lists/threshold_list.h"

#include "config/verifiers.h"
#include "core/debug.h"
#include "lists/configuration.h"
#include "lists/members.h"
#include "platform/component_status.h"
#include "state/list_evaluation.h"

namespace ot {
namespace {

constexpr list_kind threshold_items = {
    .apply_name = "object_tracking_type_threshold_object_apply",
    .create_item = "(%s) :track = %s, threshold type %d object = %s, weight = %d",
    .set_item = nullptr,
    .create_event = nullptr,
    .set_event = nullptr,
    .unchanged = "(%s) : Weight value not changed, ignore silently",
    .removing = nullptr,
    .adding = nullptr,
    .create_failed = "(%s) : Track creation failed. err:",
    .set_failed = "(%s) : Error creating track. err:%s",
    .traces_deleted_values = true,
    .create = ot_thld_create_track,
    .remove = ot_thld_del_obj_from_track,
};

constexpr list_creation threshold_creation = {
    .create_name = "ot_thld_create_track",
    .add_failed = "(%s) : ot_thld_add_obj_to_track failed - no memory to add item ",
    .add = ot_thld_add_obj_to_track,
};

constexpr const char* limits_apply_name = "object_tracking_type_threshold_object_crt_apply";

// A limits item, taken apart; usable when complete.
struct limits_item {
  const char* track = nullptr;
  track_type type = track_type::none;
  std::uint32_t up = 0;
  std::uint32_t down = 0;

  [[nodiscard]] bool complete() const noexcept {
    return track != nullptr && static_cast<std::uint32_t>(type) != 0 && up != 0;
  }
};

limits_item take_apart(const ledger_change& change) noexcept {
  limits_item item;
  const ledger_path_field* track = change.field(0);
  const ledger_path_field* type = change.field(1);
  const ledger_path_field* up = change.field(2);
  if (track != nullptr && type != nullptr && up != nullptr) {
    item.track = track->text;
    item.type = static_cast<track_type>(type->number);
    item.up = up->number;
  }
  item.down = change.new_value == nullptr ? 0 : change.new_value->as_u32();
  return item;
}

void trace_values(const ledger_change& change) noexcept {
  OT_TRACE_DETAIL("(%s) :info->oldvalue:%d", limits_apply_name,
                  change.old_value == nullptr ? 0 : static_cast<int>(change.old_value->as_u32()));
  OT_TRACE_DETAIL("(%s) :info->newvalue:%d", limits_apply_name,
                  change.new_value == nullptr ? 0 : static_cast<int>(change.new_value->as_u32()));
}

int make_list(const limits_item& item) {
  const int status = ot_thld_create_track(item.track, item.type, nullptr, 0);
  if (status != status_ok) {
    OT_TRACE_ERROR("(%s) : Track creation failed. err:", limits_apply_name);
  }
  return status;
}

int store_limits(const limits_item& item) {
  ot_track* track = hash_db_get_track_item(item.track);
  if (track != nullptr) {
    track->threshold_up = item.up;
    track->threshold_down = item.down;
  }
  object_tracking_calc_tracks_state();
  return status_ok;
}

int create_limits(const limits_item& item, const ledger_change& change) {
  OT_TRACE_DETAIL("(%s) :LEDGER_EVENT_CREATE", limits_apply_name);
  trace_values(change);
  const int status = make_list(item);
  return status == status_ok ? store_limits(item) : status;
}

int set_limits(const limits_item& item) {
  OT_TRACE_DETAIL("(%s) :LEDGER_EVENT_SET", limits_apply_name);
  const ot_track* track = hash_db_get_track_item(item.track);
  if (track == nullptr) {
    const int status = make_list(item);
    return status == status_ok ? store_limits(item) : status;
  }
  if (track->threshold_up == item.up && track->threshold_down == item.down) {
    OT_TRACE_DETAIL("(%s) : Limits not changed, ignore silently", limits_apply_name);
    return status_ok;
  }
  return store_limits(item);
}

int keep_limits(const char* who) {
  OT_TRACE_DETAIL("(%s) :LEDGER_EVENT_DELETE", who);
  OT_TRACE_DETAIL("(%s) : Currently do NOP", who);
  object_tracking_calc_tracks_state();
  return status_ok;
}

}  // namespace

int object_tracking_type_threshold_object_limits_verify(const ledger_change& change,
                                                        ledger_verdict& verdict) {
  OT_TRACE_ENTRY();
  const limits_item item = take_apart(change);
  if (!item.complete()) {
    return invalid_argument;
  }
  OT_TRACE_DETAIL("(%s) :num argument : %d", __func__, static_cast<int>(change.fields.size()));
  OT_TRACE_DETAIL("(%s) :track = %s, threshold type %d threshold_up = %d, threshold_down = %d",
                  __func__, item.track, static_cast<int>(item.type), static_cast<int>(item.up),
                  static_cast<int>(item.down));
  if ((change.event & (ledger_event_create | ledger_event_set)) != 0) {
    if (item.up <= item.down) {
      return refuse_with_text(threshold_limits_crossed,
                              "Threshold Up value should be > Threshold Down Value", verdict);
    }
    object_tracking_calc_tracks_state();
  } else if ((change.event & ledger_event_delete) != 0) {
    keep_limits(__func__);
  }
  verdict.accept = 1;
  return status_ok;
}

int object_tracking_type_threshold_object_crt_apply(const ledger_change& change) {
  OT_TRACE_ENTRY();
  const limits_item item = take_apart(change);
  if (!item.complete()) {
    return invalid_argument;
  }
  if ((change.event & ledger_event_create) != 0) {
    return create_limits(item, change);
  }
  if ((change.event & ledger_event_set) != 0) {
    return set_limits(item);
  }
  return (change.event & ledger_event_delete) != 0 ? keep_limits(__func__) : status_ok;
}

int object_tracking_type_threshold_object_apply(const ledger_change& change) {
  const ledger_path_field* object = change.field(2);
  OT_TRACE_DETAIL("(%s) :item: %s", __func__, object == nullptr ? "" : object->text);
  return apply_list_member(threshold_items, change);
}

int ot_thld_create_track(const char* name, track_type type, const char* object_name,
                         std::uint32_t weight) {
  return create_list_track(threshold_creation, name, type, object_name,
                           type == track_type::threshold_percentage ? 1 : weight);
}

int ot_thld_add_obj_to_track(ot_track& track, const char* object_name, std::uint32_t weight) {
  OT_TRACE_DETAIL("(%s) : Add to Track:%s Obj:%s", __func__, track.name.c_str(), object_name);
  if (!add_list_member(track, object_name, weight)) {
    OT_TRACE_ERROR("(%s) : Memory allocation failed.", __func__);
    return no_memory;
  }
  return status_ok;
}

void ot_thld_del_obj_from_track(const char* name, const char* object_name) {
  OT_TRACE_DETAIL("(%s) : Deleting object %s", __func__, object_name);
  ot_track* track = hash_db_get_track_item(name);
  if (track != nullptr && is_list_type(track->type)) {
    remove_list_member(*track, object_name);
  }
}

void ot_thld_set_obj_weight_in_track(const char* name, const char* object_name,
                                     std::uint32_t weight) {
  ot_track* track = hash_db_get_track_item(name);
  if (track == nullptr || !is_list_type(track->type)) {
    return;
  }
  if (list_member* member = find_list_member(*track, object_name)) {
    member->value = weight;
  }
}

int ot_thld_del_track_objects(ot_track* track) {
  OT_TRACE_ENTRY();
  return track == nullptr ? invalid_argument : clear_list(*track);
}

}  // namespace ot
