// The codes with which the object tracking service refuses a configuration. They stand with the
// platform's because err_string has the text of every code.
#pragma once

#include "platform/status.h"

namespace ot {

inline constexpr int track_type_conflict = status_code(0xa64c8200);
inline constexpr int route_mask_not_contiguous = status_code(0xa64c8400);
inline constexpr int probe_package_missing = status_code(0xa64c8600);
inline constexpr int probe_operation_taken = status_code(0xa64c8800);
inline constexpr int list_names_itself = status_code(0xa64c8a00);
inline constexpr int too_many_tracks = status_code(0xa64c8c00);
inline constexpr int threshold_limits_crossed = status_code(0xa64c8e00);

}  // namespace ot
