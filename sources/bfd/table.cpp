// The session table over the generic hash table; the key is the handle in decimal, followed by the
// destination.

#include "sources/bfd/table.h"

#include <cstdio>
#include <cstring>

#include "core/debug.h"
#include "core/in_addr_text.h"

namespace ot {

hash_db bfdprb_table;

namespace {

constexpr std::uint32_t session_buckets = 2039;  // a prime above the track limit
constexpr std::size_t key_size = 256;

struct session_key_text {
  char text[key_size];

  session_key_text(std::uint32_t ifhandle, const bfd_address& address) noexcept {
    std::snprintf(text, sizeof text, "%d%s", static_cast<int>(ifhandle),
                  in_addr_s(ipv4_of(address)));
  }
};

}  // namespace

int bfdprb_table_create() noexcept {
  return hash_db_create_str(bfdprb_table, session_buckets, key_size, sizeof(bfdprb_entry));
}

void drop_all_bfd_sessions() noexcept {
  for (auto* entry = hash_db_first_data<bfdprb_entry>(bfdprb_table); entry != nullptr;
       entry = hash_db_next_data<bfdprb_entry>(bfdprb_table)) {
    free_track_names(entry->tracks);
  }
  hash_db_destroy(bfdprb_table);
}

bfd_address ipv4_bfd_address(std::uint32_t address) noexcept {
  bfd_address record;
  record.family = bfd_family_ipv4;
  std::memcpy(record.bytes, &address, sizeof address);
  return record;
}

std::uint32_t ipv4_of(const bfd_address& address) noexcept {
  std::uint32_t ipv4 = 0;
  std::memcpy(&ipv4, address.bytes, sizeof ipv4);
  return ipv4;
}

bfdprb_entry* hash_db_get_bfdprb_item(std::uint32_t ifhandle, const bfd_address& address) noexcept {
  OT_TRACE_ENTRY();
  return hash_db_find_data<bfdprb_entry>(bfdprb_table, session_key_text(ifhandle, address).text);
}

int hash_db_delete_bfdprb_item(std::uint32_t ifhandle, const bfd_address& address) noexcept {
  OT_TRACE_ENTRY();
  if (bfdprb_entry* entry = hash_db_get_bfdprb_item(ifhandle, address)) {
    free_track_names(entry->tracks);
  }
  return hash_db_delete(bfdprb_table, session_key_text(ifhandle, address).text);
}

int hash_db_add_new_bfdprb_item(const bfdprb_entry& entry) noexcept {
  OT_TRACE_ENTRY();
  const session_key_text key(static_cast<std::uint32_t>(entry.ifhandle), entry.destaddress);
  return hash_db_add_new_item(bfdprb_table, key.text, &entry);
}

}  // namespace ot
