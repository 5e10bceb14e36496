// The configuration tree below "/cfg/gl/object_tracking/": the items that every track has, and
// those of each kind. The tree of nodes is made from the paths of the leaves.
#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <string_view>

#include "platform/fixed_text.h"
#include "platform/ledger_config.h"

namespace ot {

inline constexpr const char* configuration_root = "/cfg/gl/object_tracking/";

// Its nodes point into it: it stays where it is.
class configuration_tree {
 public:
  static constexpr std::size_t most_nodes = 96;
  static constexpr std::size_t most_leaves = 32;

  configuration_tree() noexcept = default;
  configuration_tree(const configuration_tree&) = delete;
  configuration_tree& operator=(const configuration_tree&) = delete;

  void clear() noexcept;

  // Appends leaves, whose paths have "*" for the name of a track, "*63" for a name of at most 63
  // characters, "#" for any number and "#1" for one of at least 1; they are registered in the order
  // in which they were added. 0, or 22 when the tree cannot hold them.
  int add(std::span<const ledger_registration> leaves) noexcept;

  // Leaves that say nothing of what they will lead to: their items give a track its type.
  void expect_types() noexcept;

  // Makes the nodes of all leaves: the children of a node stand side by side, followed by what is
  // below the first of them, then the second, and so on. 0, or 22 when there are too many or an
  // element of a path is too long. Once, when all leaves were added.
  int make_nodes() noexcept;

  [[nodiscard]] std::span<const ledger_tree_node> nodes() const noexcept {
    return {nodes_.data(), node_count_};
  }
  [[nodiscard]] std::span<const ledger_registration> leaves() const noexcept {
    return {leaves_.data(), leaf_count_};
  }

 private:
  using element_text = fixed_text<32>;

  std::int32_t add_level(std::string_view above) noexcept;
  bool add_node(std::string_view element, std::size_t leaf, bool is_leaf) noexcept;

  std::array<ledger_registration, most_leaves> leaves_{};
  std::size_t leaf_count_ = 0;
  std::array<ledger_tree_node, most_nodes> nodes_{};
  std::array<element_text, most_nodes> names_;  // of the literal nodes
  std::size_t node_count_ = 0;
  bool full_ = false;
};

// Makes `ret` the tree of all kinds. 0 or 22.
int make_configuration_tree(configuration_tree& ret) noexcept;

// Registers the tree. After the tables exist. Status code.
int ot_configuration_register() noexcept;

// Applies what is stored. A failing item is logged by the ledger and the rest still applied. 0, or
// a status code when the store cannot be read.
int ot_configuration_replay();

}  // namespace ot
