// The routes that tracks follow: one entry for each prefix, mask and VRF. Addresses are in network
// byte order. Main thread.
#pragma once

#include <cstdint>

#include "core/hash_db.h"
#include "core/track.h"
#include "platform/vrf_service.h"
#include "sources/track_names.h"

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

extern hash_db ipv4_route_table;

// 0 or 12. Once, at start-up.
int ipv4_route_table_create() noexcept;

// Frees every entry with its nodes, and the table.
void drop_all_routes() noexcept;

// The entry or null; the table's.
route_entry* hash_db_get_route_item(std::uint32_t prefix, std::uint32_t mask,
                                    const char* vrf_name) noexcept;
// 0, or 22 when there is none.
int hash_db_delete_route_item(std::uint32_t prefix, std::uint32_t mask,
                              const char* vrf_name) noexcept;
// Adds a copy. The table's result.
int hash_db_add_new_route_item(const route_entry& entry) noexcept;

}  // namespace ot
