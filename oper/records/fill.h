// Filling an operational record from a track.
#pragma once

#include "core/track.h"
#include "oper/records/track_records.h"

namespace ot {

// Each fills a zeroed record. 0, or 12 when a part of it could not be allocated; the parts that
// were stay linked to the record and are freed with it. Main thread.
int ot_fill_track_info(const ot_track& track, track_info__& record) noexcept;
int ot_fill_track_info_brief(const ot_track& track, track_info_brief__& record) noexcept;

// Adds the interfaces whose configuration names the track, under its whole name.
int ot_fill_intf_tracking_info(const ot_track& track, track_info__& record) noexcept;

}  // namespace ot
