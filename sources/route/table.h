// The routes that tracks follow: one entry for each prefix, mask and VRF. Addresses are in network
// byte order. Main thread.
#pragma once

#include <cstdint>
#include <cstdio>

#include "core/in_addr_text.h"
#include "platform/vrf_service.h"
#include "sources/objects.h"

namespace ot {

inline constexpr const char* default_vrf = "default";

struct route_entry {
  std::uint32_t prefix = 0;
  std::uint32_t mask = 0;
  vrf_text vrf;
  std::uint32_t vrf_id = 0;  // 0 while the VRF is not known
  track_name_node* tracks = nullptr;
  std::uint32_t reach_state = 0;  // a track_state
};

inline hash_db ipv4_route_table;

// The number of buckets is a prime above the track limit.
inline constexpr object_table<route_entry> route_objects{ipv4_route_table, 2039};

// "prefix mask vrf".
inline object_key route_key(std::uint32_t prefix, std::uint32_t mask, const char* vrf) noexcept {
  object_key key;
  std::snprintf(key.text, sizeof key.text, "%s %s %s", in_addr_s(prefix), in_addr_s(mask), vrf);
  return key;
}

// 0 or 12. Once, at start-up.
inline int ipv4_route_table_create() noexcept {
  return route_objects.create();
}

// Frees every entry with its nodes, and the table.
inline void drop_all_routes() noexcept {
  route_objects.drop_all();
}

// The entry or null; the table's.
inline route_entry* hash_db_get_route_item(std::uint32_t prefix, std::uint32_t mask,
                                           const char* vrf_name) noexcept {
  OT_TRACE_ENTRY();
  return route_objects.find(route_key(prefix, mask, vrf_name).text);
}

// 0, or 22 when there is none.
inline int hash_db_delete_route_item(std::uint32_t prefix, std::uint32_t mask,
                                     const char* vrf_name) noexcept {
  OT_TRACE_ENTRY();
  return route_objects.remove(route_key(prefix, mask, vrf_name).text);
}

// Adds a copy. The table's result.
inline int hash_db_add_new_route_item(const route_entry& entry) noexcept {
  OT_TRACE_ENTRY();
  return route_objects.add(route_key(entry.prefix, entry.mask, entry.vrf.c_str()).text, entry);
}

}  // namespace ot
