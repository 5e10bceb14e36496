// Every kind brings its leaves; what all tracks have stands here. The number below a type node is
// the track type.

#include "config/configuration_tree.h"

#include <algorithm>
#include <charconv>

#include "config/delays.h"
#include "config/expected_tracks.h"
#include "config/lifecycle.h"
#include "config/verifiers.h"
#include "core/track.h"
#include "core/track_kind.h"
#include "platform/ledger_status.h"

namespace ot {
namespace {

constexpr std::int32_t none = -1;

constexpr ledger_registration common_leaves[] = {
    {"track/*/a", ledger_row_handled, object_tracking_track_verify, object_tracking_track_apply,
     ledger_turn::owner, 0, expect_existence},
    {"track/*/delay_up", ledger_row_handled, object_tracking_default_verify,
     object_tracking_delay_up_apply, ledger_turn::last, 0, expect_record},
    {"track/*/delay_down", ledger_row_handled, object_tracking_default_verify,
     object_tracking_delay_down_apply, ledger_turn::last, 0, expect_record},
};

constexpr std::uint32_t longest_track_name = track_name::capacity - 1;

ledger_node_kind kind_of(std::string_view element) noexcept {
  return element.starts_with('*')   ? ledger_node_kind::name
         : element.starts_with('#') ? ledger_node_kind::number
                                    : ledger_node_kind::literal;
}

// The number behind a wildcard. Names are those of tracks where nothing else is said.
std::uint32_t limit_of(ledger_node_kind kind, std::string_view element) noexcept {
  std::uint32_t limit = kind == ledger_node_kind::name ? longest_track_name : 0;
  std::from_chars(element.data() + 1, element.data() + element.size(), limit);
  return kind == ledger_node_kind::literal ? 0 : limit;
}

}  // namespace

void configuration_tree::clear() noexcept {
  leaf_count_ = 0;
  node_count_ = 0;
  full_ = false;
}

int configuration_tree::add(std::span<const ledger_registration> leaves) noexcept {
  if (leaves.size() > leaves_.size() - leaf_count_) {
    return invalid_argument;
  }
  std::copy(leaves.begin(), leaves.end(), leaves_.begin() + leaf_count_);
  leaf_count_ += leaves.size();
  return status_ok;
}

void configuration_tree::expect_types() noexcept {
  for (ledger_registration& leaf : std::span{leaves_}.first(leaf_count_)) {
    if (leaf.expect == nullptr && leaf.apply != ledger_nothing_to_apply) {
      leaf.expect = expect_type;
    }
  }
}

int configuration_tree::make_nodes() noexcept {
  add_level({});
  return full_ ? invalid_argument : status_ok;
}

// Adds the nodes below `above`, which is empty or ends in '/', and everything below them. The index
// of the first.
std::int32_t configuration_tree::add_level(std::string_view above) noexcept {
  const std::size_t first = node_count_;
  std::array<std::string_view, most_leaves> below;  // by node of this level
  for (std::size_t leaf = 0; leaf < leaf_count_; ++leaf) {
    const std::string_view path = leaves_[leaf].path;
    if (!path.starts_with(above)) {
      continue;
    }
    const std::size_t end = path.find('/', above.size());
    const bool is_leaf = end == std::string_view::npos;
    const std::string_view upto = is_leaf ? path : path.substr(0, end + 1);
    if (std::find(below.begin(), below.begin() + (node_count_ - first), upto) !=
        below.begin() + (node_count_ - first)) {
      continue;
    }
    if (!add_node(path.substr(above.size(), end - above.size()), leaf, is_leaf)) {
      return none;
    }
    below[node_count_ - first - 1] = upto;
  }
  const std::size_t last = node_count_ - 1;
  for (std::size_t index = first; index <= last; ++index) {
    nodes_[index].next_sibling = index == last ? none : static_cast<std::int32_t>(index + 1);
    if (nodes_[index].has_children != 0) {
      nodes_[index].first_child = add_level(below[index - first]);
    }
  }
  return static_cast<std::int32_t>(first);
}

bool configuration_tree::add_node(std::string_view element, std::size_t leaf,
                                  bool is_leaf) noexcept {
  full_ = full_ || node_count_ == nodes_.size() || element.size() >= element_text::capacity;
  if (full_) {
    return false;
  }
  const ledger_node_kind kind = kind_of(element);
  names_[node_count_].assign(element);
  nodes_[node_count_] = {kind == ledger_node_kind::literal ? names_[node_count_].c_str() : nullptr,
                         kind,
                         none,
                         none,
                         is_leaf ? static_cast<std::int32_t>(leaf) : none,
                         is_leaf ? 0U : 1U,
                         limit_of(kind, element)};
  ++node_count_;
  return true;
}

int make_configuration_tree(configuration_tree& ret) noexcept {
  ret.clear();
  int status = ret.add(common_leaves);
  for (const track_kind* kind : track_kinds()) {
    status = status == status_ok ? ret.add(kind->leaves) : status;
  }
  ret.expect_types();
  return status == status_ok ? ret.make_nodes() : status;
}

int ot_configuration_register() noexcept {
  // The ledger keeps it by reference.
  static configuration_tree tree;
  const int status = make_configuration_tree(tree);
  return status == status_ok ? ledger_config_register(configuration_root, tree.nodes(),
                                                      tree.leaves(), forget_expected_tracks)
                             : status;
}

int ot_configuration_replay() {
  const int failures = ledger_config_replay(configuration_root);
  return failures < 0 ? ledger_storage_failure : status_ok;
}

}  // namespace ot
