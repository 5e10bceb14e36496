// The interfaces that a track follows, or that the interface manager has told of. Main thread.
#pragma once

#include <cstdint>

#include "core/hash_db.h"
#include "platform/interface_manager.h"
#include "sources/track_names.h"

namespace ot {

// Beside the interface manager's own states.
inline constexpr std::uint32_t no_state_known = 17;

struct interface_entry {
  ifc_name ifname;                                 // the key
  std::uint32_t ifhandle = 0;                      // 0: the interface manager does not know it
  track_name_node* tracks = nullptr;               // who follows it
  std::uint32_t effective_state = no_state_known;  // last pushed to the tracks
  std::uint32_t reported_state = no_state_known;   // last reported line state
  std::uint32_t redundancy = 1;                    // last reported redundancy flag
};

extern hash_db interfaces_table;

// 0 or 12. Once, at start-up.
int interfaces_table_create() noexcept;

// Frees every entry with its nodes, and the table.
void drop_all_interfaces() noexcept;

// The entry or null; the table's.
interface_entry* hash_db_get_interface_item(const char* ifname) noexcept;

// Adds a copy of the entry, or returns the table's error.
int hash_db_add_new_interface_item(const interface_entry& entry) noexcept;

// Deletes the entry, which has no tracks left. 0, or 12 when the table does not have it.
int hash_db_delete_interface_item(const char* ifname) noexcept;

}  // namespace ot
