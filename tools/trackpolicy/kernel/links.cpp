// Names move from one interface to another; an index stays with its interface.
#include "tools/trackpolicy/kernel/links.h"

namespace ot::trackpolicy {

bool link_table::put(const link_fact& link) {
  if (const link_fact* const known = find(link.index); known != nullptr && *known == link) {
    return false;
  }
  erase(link.index);
  if (const auto other = by_name_.find(link.name); other != by_name_.end()) {
    erase(other->second);
  }
  by_index_[link.index] = link;
  by_name_[link.name] = link.index;
  return true;
}

bool link_table::erase(std::uint32_t index) {
  const auto found = by_index_.find(index);
  if (found == by_index_.end()) {
    return false;
  }
  by_name_.erase(found->second.name);
  by_index_.erase(found);
  return true;
}

void link_table::clear() {
  by_index_.clear();
  by_name_.clear();
}

const link_fact* link_table::find(std::string_view name) const {
  const auto found = by_name_.find(name);
  return found == by_name_.end() ? nullptr : find(found->second);
}

const link_fact* link_table::find(std::uint32_t index) const {
  const auto found = by_index_.find(index);
  return found == by_index_.end() ? nullptr : &found->second;
}

}  // namespace ot::trackpolicy
