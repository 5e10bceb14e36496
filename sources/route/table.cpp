// The route table over the generic hash table; the key is the text "prefix mask vrf".

#include "sources/route/table.h"

#include <cstdio>

#include "core/debug.h"
#include "core/in_addr_text.h"
#include "platform/status.h"

namespace ot {

hash_db ipv4_route_table;

namespace {

constexpr std::uint32_t route_buckets = 2039;  // a prime above the track limit
constexpr std::size_t key_size = 256;

struct route_key {
  char text[key_size];

  route_key(std::uint32_t prefix, std::uint32_t mask, const char* vrf) noexcept {
    std::snprintf(text, sizeof text, "%s %s %s", in_addr_s(prefix), in_addr_s(mask), vrf);
  }
};

}  // namespace

int ipv4_route_table_create() noexcept {
  return hash_db_create_str(ipv4_route_table, route_buckets, key_size, sizeof(route_entry));
}

void drop_all_routes() noexcept {
  for (auto* entry = hash_db_first_data<route_entry>(ipv4_route_table); entry != nullptr;
       entry = hash_db_next_data<route_entry>(ipv4_route_table)) {
    free_track_names(entry->tracks);
  }
  hash_db_destroy(ipv4_route_table);
}

route_entry* hash_db_get_route_item(std::uint32_t prefix, std::uint32_t mask,
                                    const char* vrf_name) noexcept {
  OT_TRACE_ENTRY();
  return hash_db_find_data<route_entry>(ipv4_route_table, route_key(prefix, mask, vrf_name).text);
}

int hash_db_delete_route_item(std::uint32_t prefix, std::uint32_t mask,
                              const char* vrf_name) noexcept {
  OT_TRACE_ENTRY();
  return hash_db_delete(ipv4_route_table, route_key(prefix, mask, vrf_name).text);
}

int hash_db_add_new_route_item(const route_entry& entry) noexcept {
  OT_TRACE_ENTRY();
  const route_key key(entry.prefix, entry.mask, entry.vrf.c_str());
  return hash_db_add_new_item(ipv4_route_table, key.text, &entry);
}

}  // namespace ot
