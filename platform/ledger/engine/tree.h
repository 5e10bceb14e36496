// The registered configuration trees: which paths exist, and what handles each.
#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/ledger_config.h"

namespace ot {

// A path that a tree knows, with its wildcards taken out. Moves keep the fields valid.
struct ledger_match {
  std::unique_ptr<char[]> elements;  // the path with its elements terminated
  std::vector<ledger_path_field> fields;
  const ledger_registration* row = nullptr;
};

class ledger_trees {
 public:
  // 0, 22 when root, nodes and rows do not fit together, 76 when the root overlaps a known one.
  int add(std::string_view root, std::span<const ledger_tree_node> nodes,
          std::span<const ledger_registration> rows);

  // 0, or ledger_unknown_path. `ret` is written on success.
  int match(std::string_view path, ledger_match& ret) const;

 private:
  struct tree {
    std::string root;
    std::span<const ledger_tree_node> nodes;
    std::span<const ledger_registration> rows;
  };
  std::vector<tree> trees_;
};

// The kind of value that a row's items have.
[[nodiscard]] ledger_kind ledger_row_kind(const ledger_registration& row) noexcept;

// Adds the tree that the ledger brings along: "/cfg/if/act/<interface>/<service>/track_name", the
// services of an interface that follow a track. The items are only kept for whoever reads them, and
// their changes reported (platform/ledger_interface_services.h).
int ledger_add_builtin_trees(ledger_trees& trees);

}  // namespace ot
