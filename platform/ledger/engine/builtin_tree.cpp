// The interfaces' own configuration belongs to other services of the router; the one leaf of it
// that speaks of tracks is kept here, so that it can be configured and read beside the tracks.
#include "platform/ledger/engine/builtin_tree.h"

namespace ot {
namespace {

constexpr ledger_tree_node interface_nodes[] = {
    {nullptr, ledger_node_kind::name, 1, -1, -1, 1},
    {nullptr, ledger_node_kind::name, 2, -1, -1, 1},
    {"track_name", ledger_node_kind::literal, -1, -1, 0, 0},
};

constexpr ledger_registration interface_rows[] = {
    {"<interface>/<service>/track_name", ledger_row_text, nullptr, nullptr},
};

}  // namespace

int ledger_add_builtin_trees(ledger_trees& trees) {
  return trees.add("/cfg/if/act/", interface_nodes, interface_rows);
}

}  // namespace ot
