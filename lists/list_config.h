// The dispatch of member items between the two kinds of lists.
#pragma once

#include "platform/ledger_config.h"

namespace ot {

// Apply function of type/list/#/object/*/a: 22 for list type 0; types that are no lists are
// ignored.
int object_tracking_type_list_object_apply(const ledger_change& change);

}  // namespace ot
