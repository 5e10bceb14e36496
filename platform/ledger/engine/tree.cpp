// The registered configuration trees. A tree is the table of nodes that its owner hands in, walked
// in place: literals, wildcards for names and wildcards for numbers. A number has one spelling
// ("0x1f", never "0x01F"), so that two paths never mean the same item.
#include "platform/ledger/engine/tree.h"

#include <algorithm>
#include <charconv>
#include <cstring>

#include "platform/ledger/engine/interface_services.h"
#include "platform/ledger/item.h"
#include "platform/ledger_status.h"

namespace ot {
namespace {

using node_span = std::span<const ledger_tree_node>;

bool index_fits(std::int32_t index, std::size_t count) noexcept {
  return index >= -1 && index < static_cast<std::int32_t>(count);
}

bool node_fits(const ledger_tree_node& node, std::size_t nodes, std::size_t rows) noexcept {
  const bool inner = node.first_child != -1;
  return index_fits(node.first_child, nodes) && index_fits(node.next_sibling, nodes) &&
         index_fits(node.handler, rows) && inner == (node.has_children == 1) &&
         inner == (node.handler == -1) &&
         (node.kind == ledger_node_kind::literal) == (node.name != nullptr);
}

// Every node has at most one way in and node 0, the start, has none: the walk always ends.
bool tree_fits(node_span nodes, std::size_t rows) {
  std::vector<bool> reached(nodes.size(), false);
  for (const ledger_tree_node& node : nodes) {
    if (!node_fits(node, nodes.size(), rows)) {
      return false;
    }
    for (const std::int32_t next : {node.first_child, node.next_sibling}) {
      if (next == -1) {
        continue;
      }
      const auto at = static_cast<std::size_t>(next);
      if (next == 0 || reached[at]) {
        return false;
      }
      reached[at] = true;
    }
  }
  return !nodes.empty();
}

bool parse_number(std::string_view element, std::uint32_t& ret) noexcept {
  if (!element.starts_with("0x") || element.size() < 3 || element.size() > 10 ||
      (element[2] == '0' && element.size() > 3) ||
      std::any_of(element.begin() + 2, element.end(),
                  [](char c) { return c >= 'A' && c <= 'F'; })) {
    return false;
  }
  const char* end = element.data() + element.size();
  return std::from_chars(element.data() + 2, end, ret, 16).ptr == end;
}

// Walks a path's terminated elements down a tree, collecting the wildcards' values.
class matcher {
 public:
  matcher(node_span nodes, const char* end, std::vector<ledger_path_field>& fields) noexcept
      : nodes_(nodes), end_(end), fields_(fields) {}

  // The wildcards of the fields, in their order.
  [[nodiscard]] std::span<const ledger_tree_node* const> wildcards() const noexcept {
    return wildcards_;
  }

  // The handler of the leaf that `element` and what follows lead to, or -1.
  std::int32_t walk(std::int32_t first, const char* element) {
    for (std::int32_t at = first; at != -1; at = node(at).next_sibling) {
      const std::size_t mark = fields_.size();
      if (takes(node(at), element)) {
        const char* next = element + std::strlen(element) + 1;
        const std::int32_t handler =
            next > end_ ? node(at).handler : walk(node(at).first_child, next);
        if (handler != -1) {
          return handler;
        }
      }
      fields_.resize(mark);
      wildcards_.resize(mark);
    }
    return -1;
  }

 private:
  [[nodiscard]] const ledger_tree_node& node(std::int32_t index) const noexcept {
    return nodes_[static_cast<std::size_t>(index)];
  }

  bool takes(const ledger_tree_node& candidate, const char* element) {
    ledger_path_field field{.text = element};
    switch (candidate.kind) {
      case ledger_node_kind::literal:
        return std::strcmp(candidate.name, element) == 0;
      case ledger_node_kind::number:
        if (!parse_number(element, field.number)) {
          return false;
        }
        break;
      case ledger_node_kind::name:
        break;
      default:
        return false;
    }
    fields_.push_back(field);
    wildcards_.push_back(&candidate);
    return true;
  }

  node_span nodes_;
  const char* end_;
  std::vector<ledger_path_field>& fields_;
  std::vector<const ledger_tree_node*> wildcards_;
};

// What is wrong with a wildcard's value; empty when nothing is.
std::string limit_fault(const ledger_tree_node& wildcard, const ledger_path_field& field) {
  if (wildcard.kind == ledger_node_kind::number) {
    return field.number >= wildcard.limit ? std::string{}
                                          : std::string{"the number "} + field.text +
                                                " is less than " + std::to_string(wildcard.limit);
  }
  const std::size_t length = std::strlen(field.text);
  return wildcard.limit == 0 || length <= wildcard.limit
             ? std::string{}
             : "a name in it has " + std::to_string(length) + " characters, at most " +
                   std::to_string(wildcard.limit) + " are taken";
}

using wildcard_span = std::span<const ledger_tree_node* const>;

std::string limit_fault(wildcard_span wildcards, std::span<const ledger_path_field> fields) {
  std::string fault;
  for (std::size_t index = 0; index < fields.size() && fault.empty(); ++index) {
    fault = limit_fault(*wildcards[index], fields[index]);
  }
  return fault;
}

// Where the first name of a path ends; `end` when it has none.
const char* end_of_owner(wildcard_span wildcards, std::span<const ledger_path_field> fields,
                         const char* end) noexcept {
  for (std::size_t index = 0; index < fields.size(); ++index) {
    if (wildcards[index]->kind == ledger_node_kind::name) {
      return fields[index].text + std::strlen(fields[index].text);
    }
  }
  return end;
}

// The interfaces' own configuration belongs to other services of the router; the one leaf of it
// that speaks of tracks is kept here, so that it can be configured and read beside the tracks.
constexpr ledger_tree_node interface_nodes[] = {
    {nullptr, ledger_node_kind::name, 1, -1, -1, 1},
    {nullptr, ledger_node_kind::name, 2, -1, -1, 1},
    {"track_name", ledger_node_kind::literal, -1, -1, 0, 0},
};

constexpr ledger_registration interface_rows[] = {
    {"<interface>/<service>/track_name", ledger_row_handled | ledger_row_text,
     ledger_interface_service_verify, ledger_interface_service_apply},
};

}  // namespace

int ledger_trees::add(std::string_view root, node_span nodes,
                      std::span<const ledger_registration> rows, void (*forget)() noexcept) {
  if (!ledger_base_path_valid(root) || !ledger_path_is_configuration(root) ||
      !tree_fits(nodes, rows.size())) {
    return invalid_argument;
  }
  for (const tree& known : trees_) {
    if (known.root.starts_with(root) || root.starts_with(known.root)) {
      return duplicate_key;
    }
  }
  trees_.push_back({std::string{root}, nodes, rows, forget});
  return status_ok;
}

void ledger_trees::forget_expected() const noexcept {
  for (const tree& each : trees_) {
    if (each.forget != nullptr) {
      each.forget();
    }
  }
}

int ledger_trees::match(std::string_view path, ledger_match& ret, std::string& ret_fault) const {
  const auto owner = std::find_if(trees_.begin(), trees_.end(), [path](const tree& candidate) {
    return path.starts_with(candidate.root);
  });
  if (owner == trees_.end() || !ledger_item_path_valid(path)) {
    return ledger_unknown_path;
  }
  const std::string_view below = path.substr(owner->root.size());
  ledger_match found;
  found.elements = std::make_unique<char[]>(below.size() + 1);
  std::replace_copy(below.begin(), below.end(), found.elements.get(), '/', '\0');
  const char* end = found.elements.get() + below.size();
  matcher walk{owner->nodes, end, found.fields};
  const std::int32_t handler = walk.walk(0, found.elements.get());
  if (handler == -1) {
    return ledger_unknown_path;
  }
  if (std::string fault = limit_fault(walk.wildcards(), found.fields); !fault.empty()) {
    ret_fault = std::move(fault);
    return invalid_argument;
  }
  end = end_of_owner(walk.wildcards(), found.fields, end);
  found.owner = owner->root.size() + static_cast<std::size_t>(end - found.elements.get());
  found.row = &owner->rows[static_cast<std::size_t>(handler)];
  ret = std::move(found);
  return status_ok;
}

ledger_kind ledger_row_kind(const ledger_registration& row) noexcept {
  if ((row.flags & ledger_row_text) != 0) {
    return ledger_kind::text;
  }
  return (row.flags & ledger_row_tuple) != 0 ? ledger_kind::tuple : ledger_kind::u32;
}

int ledger_add_builtin_trees(ledger_trees& trees) {
  return trees.add("/cfg/if/act/", interface_nodes, interface_rows);
}

}  // namespace ot
