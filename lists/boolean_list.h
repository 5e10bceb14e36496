// Boolean lists: members joined by "and" or "or", each of which may be negated. Main thread.
#pragma once

#include <cstdint>

#include "core/track.h"
#include "platform/ledger_config.h"

namespace ot {

// Applies one member item of an "and" or "or" list; its value is the "not" flag. 0, 12, 22.
int object_tracking_type_bool_object_apply(const ledger_change& change);

// Creates the list track if needed and adds the member unless `object_name` is null. 0 or 12.
int object_tracking_type_bool_create(const char* name, track_type type, const char* object_name,
                                     std::uint32_t with_not);

// Adds a member at the head. 0 or 12.
int object_tracking_add_object_to_track(ot_track& track, const char* object_name,
                                        std::uint32_t with_not);

// Removes one member, or nothing; always 0.
int delete_track_bool_object(const char* name, const char* object_name);

// Removes all members; an up list becomes unknown first. 0, also for a null track or an unknown
// name, or the publication's error with the members kept. By name, the track has no type
// afterwards.
int object_tracking_delete_track_bool_objects(ot_track* track);
int object_tracking_delete_track_bool_objects_by_name(const char* name);

}  // namespace ot
