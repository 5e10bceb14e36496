// The configuration tree below "/cfg/gl/object_tracking/" and its 13 handlers.
#pragma once

#include <array>

#include "platform/ledger_config.h"

namespace ot {

inline constexpr const char* configuration_root = "/cfg/gl/object_tracking/";

extern const std::array<ledger_tree_node, 39> configuration_nodes;
extern const std::array<ledger_registration, 13> configuration_handlers;

// Registers the tree. After the tables exist. Status code.
int ot_configuration_register() noexcept;

// Applies what is stored. A failing item is logged by the ledger and the rest still applied. 0, or
// a status code when the store cannot be read.
int ot_configuration_replay();

}  // namespace ot
