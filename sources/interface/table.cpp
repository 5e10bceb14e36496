// The interface table over the generic hash table.

#include "sources/interface/table.h"

#include "core/debug.h"
#include "platform/status.h"

namespace ot {

hash_db interfaces_table;

namespace {

// A prime; a router has up to a few thousand interfaces.
constexpr std::uint32_t interface_buckets = 1021;

}  // namespace

int interfaces_table_create() noexcept {
  return hash_db_create_str(interfaces_table, interface_buckets, ifc_name::capacity,
                            sizeof(interface_entry));
}

void drop_all_interfaces() noexcept {
  for (auto* entry = hash_db_first_data<interface_entry>(interfaces_table); entry != nullptr;
       entry = hash_db_next_data<interface_entry>(interfaces_table)) {
    free_track_names(entry->tracks);
  }
  hash_db_destroy(interfaces_table);
}

interface_entry* hash_db_get_interface_item(const char* ifname) noexcept {
  OT_TRACE_ENTRY();
  return hash_db_find_data<interface_entry>(interfaces_table, ifname);
}

int hash_db_add_new_interface_item(const interface_entry& entry) noexcept {
  return hash_db_add_new_item(interfaces_table, entry.ifname.c_str(), &entry);
}

int hash_db_delete_interface_item(const char* ifname) noexcept {
  if (hash_db_delete(interfaces_table, ifname) != status_ok) {
    OT_TRACE_ERROR("ERROR - failed to delete interface %s from hash ", ifname);
    return no_memory;
  }
  return status_ok;
}

}  // namespace ot
