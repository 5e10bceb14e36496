// The probe operations that tracks follow. Main thread.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "sources/objects.h"

namespace ot {

struct prb_entry {
  std::int32_t op_id = 0;
  track_name_node* tracks = nullptr;
  std::uint32_t state = 0;  // a track_state: that of the first track when it was tied
  std::uint32_t reserved = 0;
};

inline hash_db prb_table;

// The number of buckets is a prime above the track limit.
inline constexpr object_table<prb_entry> probe_objects{prb_table, 2039};

// The operation id in decimal.
inline object_key probe_key(std::int32_t op_id) noexcept {
  object_key key;
  std::snprintf(key.text, sizeof key.text, "%d", op_id);
  return key;
}

// 0 or 12. Once, at start-up.
inline int prb_table_create() noexcept {
  return probe_objects.create();
}

// Frees every entry with its nodes, and the table.
inline void drop_all_probes() noexcept {
  probe_objects.drop_all();
}

// The entry or null; the table's.
inline prb_entry* hash_db_get_prb_item(std::int32_t op_id) noexcept {
  OT_TRACE_ENTRY();
  return probe_objects.find(probe_key(op_id).text);
}

// 0, or 22 when there is none.
inline int hash_db_delete_prb_item(std::int32_t op_id) noexcept {
  OT_TRACE_ENTRY();
  return probe_objects.remove(probe_key(op_id).text);
}

// Adds a copy. The table's result.
inline int hash_db_add_new_prb_item(const prb_entry& entry) noexcept {
  OT_TRACE_ENTRY();
  return probe_objects.add(probe_key(entry.op_id).text, entry);
}

// Orders two records by their first 32-bit unsigned field: -1, 0 or 1.
inline int track_prb_compare(const void* a, const void* b) noexcept {
  std::uint32_t left = 0;
  std::uint32_t right = 0;
  std::memcpy(&left, a, sizeof left);
  std::memcpy(&right, b, sizeof right);
  return left < right ? -1 : static_cast<int>(left > right);
}

}  // namespace ot
