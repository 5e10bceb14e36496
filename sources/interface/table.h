// The interfaces that a track follows, or that the interface manager has reported. Main thread.
#pragma once

#include <cstdint>

#include "platform/interface_manager.h"
#include "sources/objects.h"

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

inline hash_db interfaces_table;

// The number of buckets is a prime; a router has up to a few thousand interfaces.
inline constexpr object_table<interface_entry> interface_objects{interfaces_table, 1021,
                                                                 ifc_name::capacity};

// 0 or 12. Once, at start-up.
inline int interfaces_table_create() noexcept {
  return interface_objects.create();
}

// Frees every entry with its nodes, and the table.
inline void drop_all_interfaces() noexcept {
  interface_objects.drop_all();
}

// The entry or null; the table's.
inline interface_entry* hash_db_get_interface_item(const char* ifname) noexcept {
  OT_TRACE_ENTRY();
  return interface_objects.find(ifname);
}

// Adds a copy of the entry, or returns the table's error.
inline int hash_db_add_new_interface_item(const interface_entry& entry) noexcept {
  return interface_objects.add(entry.ifname.c_str(), entry);
}

// Deletes the entry, which has no tracks left. 0, or 12 when the table does not have it.
inline int hash_db_delete_interface_item(const char* ifname) noexcept {
  if (interface_objects.remove(ifname) != status_ok) {
    OT_TRACE_ERROR("ERROR - failed to delete interface %s from hash ", ifname);
    return no_memory;
  }
  return status_ok;
}

}  // namespace ot
