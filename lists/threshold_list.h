// Threshold lists: up while the summed weight of the members that are up, or their percentage, lies
// between two limits. Main thread.
#pragma once

#include <cstdint>

#include "core/track.h"
#include "platform/ledger_config.h"

namespace ot {

// Verifies the limits item: the path carries the up limit, the value is the down limit. Refuses
// limits of which up is not the greater; 22 without a track name, a type or an up limit. An
// accepted change requests a recalculation here already.
int object_tracking_type_threshold_object_limits_verify(const ledger_change& change,
                                                        ledger_verdict& verdict);

// Applies the limits item. A deleted item leaves the last limits in force. 0, 12, 22.
int object_tracking_type_threshold_object_crt_apply(const ledger_change& change);

// Applies one member item; its value is the weight. 0, 12, 22.
int object_tracking_type_threshold_object_apply(const ledger_change& change);

// Creates the list track if needed and adds the member unless `object_name` is null. A percentage
// list counts its members: every weight becomes 1. 0 or 12.
int ot_thld_create_track(const char* name, track_type type, const char* object_name,
                         std::uint32_t weight);

// Adds a member at the head. 0 or 12.
int ot_thld_add_obj_to_track(ot_track& track, const char* object_name, std::uint32_t weight);

// Removes one member, or nothing.
void ot_thld_del_obj_from_track(const char* name, const char* object_name);

// Sets the weight of the first member of that name, if there is one.
void ot_thld_set_obj_weight_in_track(const char* name, const char* object_name,
                                     std::uint32_t weight);

// Removes all members; an up list becomes unknown first. 0, 22 for a null track, or the
// publication's error with the members kept.
int ot_thld_del_track_objects(ot_track* track);

}  // namespace ot
