// Looking a store's file over before it is used. Damage of any kind shows here and nowhere else: a
// process of its own opens the file and reads all of it, and whatever happens to that process
// happens to nobody else.
#pragma once

#include <cstddef>
#include <string>

namespace ot {

enum class store_state {
  absent,
  good,
  faulty,     // damaged, or not the service's own
  unreadable  // the system does not let it be read
};

// Whether the store at `path` can be used. `ordered`: it keeps the order of its items. `ret_fault`
// gets what is wrong, without the path. The file is not changed. Forks.
store_state check_store(const std::string& path, std::size_t map_bytes, bool ordered,
                        std::string& ret_fault);

}  // namespace ot
