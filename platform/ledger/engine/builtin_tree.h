// The configuration trees that the ledger brings along.
#pragma once

#include "platform/ledger/engine/tree.h"

namespace ot {

// "/cfg/if/act/<interface>/<service>/track_name": the services of an interface that follow a track.
// The items are only kept for whoever reads them.
int ledger_add_builtin_trees(ledger_trees& trees);

}  // namespace ot
