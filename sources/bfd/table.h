// The BFD sessions that tracks follow: one entry for each interface and destination. Main thread.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "core/in_addr_text.h"
#include "platform/bfd_client.h"
#include "sources/objects.h"

namespace ot {

// What identifies a session.
struct bfdprb_key {
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

inline hash_db bfdprb_table;

// The number of buckets is a prime above the track limit.
inline constexpr object_table<bfdprb_entry> session_objects{bfdprb_table, 2039};

// An IPv4 address (network byte order) as the service's address record.
inline bfd_address ipv4_bfd_address(std::uint32_t address) noexcept {
  bfd_address record;
  record.family = bfd_family_ipv4;
  std::memcpy(record.bytes, &address, sizeof address);
  return record;
}
// And back.
inline std::uint32_t ipv4_of(const bfd_address& address) noexcept {
  std::uint32_t ipv4 = 0;
  std::memcpy(&ipv4, address.bytes, sizeof ipv4);
  return ipv4;
}

// The handle in decimal, followed by the destination.
inline object_key session_key(std::uint32_t ifhandle, const bfd_address& address) noexcept {
  object_key key;
  std::snprintf(key.text, sizeof key.text, "%d%s", static_cast<int>(ifhandle),
                in_addr_s(ipv4_of(address)));
  return key;
}

// 0 or 12. Once, at start-up.
inline int bfdprb_table_create() noexcept {
  return session_objects.create();
}

// Frees every entry with its nodes, and the table.
inline void drop_all_bfd_sessions() noexcept {
  session_objects.drop_all();
}

// The entry or null; the table's.
inline bfdprb_entry* hash_db_get_bfdprb_item(std::uint32_t ifhandle,
                                             const bfd_address& address) noexcept {
  OT_TRACE_ENTRY();
  return session_objects.find(session_key(ifhandle, address).text);
}

// Deletes the entry with its nodes. 0, or 22 when there is none.
inline int hash_db_delete_bfdprb_item(std::uint32_t ifhandle, const bfd_address& address) noexcept {
  OT_TRACE_ENTRY();
  if (bfdprb_entry* entry = hash_db_get_bfdprb_item(ifhandle, address)) {
    free_track_names(entry->tracks);
  }
  return session_objects.remove(session_key(ifhandle, address).text);
}

// Adds a copy. The table's result.
inline int hash_db_add_new_bfdprb_item(const bfdprb_entry& entry) noexcept {
  OT_TRACE_ENTRY();
  return session_objects.add(
      session_key(static_cast<std::uint32_t>(entry.ifhandle), entry.destaddress).text, entry);
}

}  // namespace ot
