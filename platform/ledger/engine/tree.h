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
  // Characters of the path up to the end of its first name; all of them when it has no name.
  std::size_t owner = 0;
};

class ledger_trees {
 public:
  // 0, 22 when root, nodes and rows do not fit together, 76 when the root overlaps a known one.
  // `forget` as in ledger_config_register.
  int add(std::string_view root, std::span<const ledger_tree_node> nodes,
          std::span<const ledger_registration> rows, void (*forget)() noexcept = nullptr);

  // 0 with `ret` written; ledger_unknown_path; or 22, with the reason in `ret_fault`, for a path
  // that is known but for a name that is too long or a number that is too small.
  int match(std::string_view path, ledger_match& ret, std::string& ret_fault) const;

  // Ends what the rows' `expect` functions began.
  void forget_expected() const noexcept;

 private:
  struct tree {
    std::string root;
    std::span<const ledger_tree_node> nodes;
    std::span<const ledger_registration> rows;
    void (*forget)() noexcept;
  };
  std::vector<tree> trees_;
};

// The kind of value that a row's items have.
[[nodiscard]] ledger_kind ledger_row_kind(const ledger_registration& row) noexcept;

// Of items in a late turn the last one is in force, and stays so when its item is deleted, until
// another one is set. What is deleted goes on below this path, which no tree knows, for the replay.
inline constexpr std::string_view ledger_retired_root = "/retired";

// Adds the tree that the ledger brings along: "/cfg/if/act/<interface>/<service>/track_name", the
// services of an interface that follow a track. The items are only kept for whoever reads them, and
// their changes reported (platform/ledger_interface_services.h).
int ledger_add_builtin_trees(ledger_trees& trees);

}  // namespace ot
