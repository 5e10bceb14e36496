// One table from list type to the kind that applies its members.

#include "lists/list_config.h"

#include <array>

#include "core/debug.h"
#include "core/track.h"
#include "lists/boolean_list.h"
#include "lists/threshold_list.h"
#include "platform/status.h"

namespace ot {
namespace {

struct apply_row {
  track_type type;
  ledger_apply_fn apply;
};

constexpr std::array<apply_row, 4> rows = {{
    {track_type::boolean_and, object_tracking_type_bool_object_apply},
    {track_type::boolean_or, object_tracking_type_bool_object_apply},
    {track_type::threshold_weight, object_tracking_type_threshold_object_apply},
    {track_type::threshold_percentage, object_tracking_type_threshold_object_apply},
}};

}  // namespace

int object_tracking_type_list_object_apply(const ledger_change& change) {
  OT_TRACE_ENTRY();
  const ledger_path_field* type = change.field(1);
  if (type == nullptr || type->number == 0) {
    return invalid_argument;
  }
  for (const apply_row& row : rows) {
    if (static_cast<std::uint32_t>(row.type) == type->number) {
      return row.apply(change);
    }
  }
  return status_ok;
}

}  // namespace ot
