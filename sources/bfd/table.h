// The BFD sessions that tracks follow: one entry for each interface and destination. Main thread.
#pragma once

#include <cstdint>

#include "core/hash_db.h"
#include "platform/bfd_client.h"
#include "sources/track_names.h"

namespace ot {

// What identifies a session.
struct bfd_session_key {
  std::uint32_t ifhandle = 0;
  bfd_address destination;
};

struct bfdprb_entry {
  track_name_node* tracks = nullptr;
  bfd_address destaddress;
  std::int32_t ifhandle = 0;
  std::uint32_t state = 0;       // a track_state
  std::uint32_t created_by = 0;  // number of the latest request for its creation
};

extern hash_db bfdprb_table;

// 0 or 12. Once, at start-up.
int bfdprb_table_create() noexcept;

// Frees every entry with its nodes, and the table.
void drop_all_bfd_sessions() noexcept;

// An IPv4 address (network byte order) as the service's address record.
bfd_address ipv4_bfd_address(std::uint32_t address) noexcept;
// And back.
std::uint32_t ipv4_of(const bfd_address& address) noexcept;

// The entry or null; the table's.
bfdprb_entry* hash_db_get_bfdprb_item(std::uint32_t ifhandle, const bfd_address& address) noexcept;
// Deletes the entry with its nodes. 0, or 22 when there is none.
int hash_db_delete_bfdprb_item(std::uint32_t ifhandle, const bfd_address& address) noexcept;
// Adds a copy. The table's result.
int hash_db_add_new_bfdprb_item(const bfdprb_entry& entry) noexcept;

}  // namespace ot
