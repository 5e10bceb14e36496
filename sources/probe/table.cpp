// The probe table over the generic hash table; the key is the operation id in decimal.

#include "sources/probe/table.h"

#include <cstdio>
#include <cstring>

#include "core/debug.h"
#include "platform/status.h"

namespace ot {

hash_db prb_table;

namespace {

constexpr std::uint32_t probe_buckets = 2039;  // a prime above the track limit
constexpr std::size_t key_size = 256;

struct probe_key {
  char text[key_size];

  explicit probe_key(std::int32_t op_id) noexcept { std::snprintf(text, sizeof text, "%d", op_id); }
};

std::uint32_t first_field(const void* record) noexcept {
  std::uint32_t value = 0;
  std::memcpy(&value, record, sizeof value);
  return value;
}

}  // namespace

int prb_table_create() noexcept {
  return hash_db_create_str(prb_table, probe_buckets, key_size, sizeof(prb_entry));
}

void drop_all_probes() noexcept {
  for (auto* entry = hash_db_first_data<prb_entry>(prb_table); entry != nullptr;
       entry = hash_db_next_data<prb_entry>(prb_table)) {
    free_track_names(entry->tracks);
  }
  hash_db_destroy(prb_table);
}

prb_entry* hash_db_get_prb_item(std::int32_t op_id) noexcept {
  OT_TRACE_ENTRY();
  return hash_db_find_data<prb_entry>(prb_table, probe_key(op_id).text);
}

int hash_db_delete_prb_item(std::int32_t op_id) noexcept {
  OT_TRACE_ENTRY();
  return hash_db_delete(prb_table, probe_key(op_id).text);
}

int hash_db_add_new_prb_item(const prb_entry& entry) noexcept {
  OT_TRACE_ENTRY();
  return hash_db_add_new_item(prb_table, probe_key(entry.op_id).text, &entry);
}

int track_prb_compare(const void* a, const void* b) noexcept {
  const std::uint32_t left = first_field(a);
  const std::uint32_t right = first_field(b);
  return left < right ? -1 : static_cast<int>(left > right);
}

}  // namespace ot
