// The probe operations that tracks follow. Main thread.
#pragma once

#include <cstdint>

#include "core/hash_db.h"
#include "core/track.h"
#include "sources/track_names.h"

namespace ot {

struct prb_entry {
  std::int32_t op_id = 0;
  track_name_node* tracks = nullptr;
  std::uint32_t state = 0;  // a track_state: that of the first track when it was tied
  std::uint32_t reserved = 0;
};

extern hash_db prb_table;

// 0 or 12. Once, at start-up.
int prb_table_create() noexcept;

// Frees every entry with its nodes, and the table.
void drop_all_probes() noexcept;

// The entry or null; the table's.
prb_entry* hash_db_get_prb_item(std::int32_t op_id) noexcept;
// 0, or 22 when there is none.
int hash_db_delete_prb_item(std::int32_t op_id) noexcept;
// Adds a copy. The table's result.
int hash_db_add_new_prb_item(const prb_entry& entry) noexcept;

// Orders two records by their first 32-bit unsigned field: -1, 0 or 1.
int track_prb_compare(const void* a, const void* b) noexcept;

}  // namespace ot
