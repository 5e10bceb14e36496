// hash_db: the one chained hash table behind every table of the service. It owns its entries; what
// a lookup returns stays the table's. The bucket count is fixed at creation and nothing is ever
// rehashed. Iteration order is bucket order, and insertion order within a bucket.
//
// No operation locks and the cursor is part of the table: one walk at a time, one thread.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/linked_queue.h"

namespace ot {

// One heap block: this link, then the key, then the data record.
struct hash_db_entry {
  lq_link link;
};

struct hash_db {
  std::uint32_t bucket_count = 0;
  std::uint16_t key_size = 0;
  std::uint16_t data_size = 0;
  std::uint32_t entry_size = 0;  // key size + data size + the link word
  std::uint32_t entries = 0;
  lq_queue* buckets = nullptr;  // null while the table is not created
  std::uint32_t cursor_bucket = 0;
  hash_db_entry* cursor_entry = nullptr;
  bool (*compare)(const hash_db& table, const void* a, const void* b) = nullptr;
  void (*copy_key)(const hash_db& table, void* to, const void* from) = nullptr;
  std::uint32_t (*hash)(const hash_db& table, const void* key) = nullptr;
};

// Tables with u32 keys, and with text keys of at most key_size - 1 characters. Text keys hash by
// their exact bytes but compare without regard to case, so two spellings of a name are one key only
// when they happen to share a bucket. 0, or 12 (the table stays uncreated).
int hash_db_create_int(hash_db& table, std::uint32_t bucket_count,
                       std::uint16_t data_size) noexcept;
int hash_db_create_str(hash_db& table, std::uint32_t bucket_count, std::uint16_t key_size,
                       std::uint16_t data_size) noexcept;

// A key is a pointer to a u32 or a terminated text, after the table's kind.

// Copies key and data (data_size bytes; ignored when that is 0) into a new entry at its bucket's
// tail. 76 when an equal key is present, 12 when there is no memory or the table is not created.
int hash_db_add_new_item(hash_db& table, const void* key, const void* data) noexcept;

// The entry or null. The second form leaves the cursor on the bucket searched and on the entry.
hash_db_entry* hash_db_find(const hash_db& table, const void* key) noexcept;
hash_db_entry* hash_db_find_set_cursor(hash_db& table, const void* key) noexcept;

// A walk over all entries; both return null at the end.
hash_db_entry* hash_db_first(hash_db& table) noexcept;
hash_db_entry* hash_db_next(hash_db& table) noexcept;

// Frees the entry at the cursor and clears the cursor, so a walk that goes on starts from the
// first bucket again. Nothing happens without an entry at the cursor.
void hash_db_delete_current(hash_db& table) noexcept;

// 0, or 22 when the key is absent.
int hash_db_delete(hash_db& table, const void* key) noexcept;

std::uint32_t hash_db_count(const hash_db& table) noexcept;

// Frees everything; the table is uncreated afterwards.
void hash_db_destroy(hash_db& table) noexcept;

// The key and the data record of an entry.
const void* hash_db_key(const hash_db_entry& entry) noexcept;
void* hash_db_data(const hash_db& table, hash_db_entry& entry) noexcept;

// The data record of the entry with that key as a T, or null. T must be the table's record type.
template <typename T>
T* hash_db_find_data(const hash_db& table, const void* key) noexcept {
  hash_db_entry* entry = hash_db_find(table, key);
  return entry == nullptr ? nullptr : static_cast<T*>(hash_db_data(table, *entry));
}

// Walks a table of Ts: `for (T* item = hash_db_first_data<T>(t); item; item =
// hash_db_next_data<T>(t))`.
template <typename T>
T* hash_db_first_data(hash_db& table) noexcept {
  hash_db_entry* entry = hash_db_first(table);
  return entry == nullptr ? nullptr : static_cast<T*>(hash_db_data(table, *entry));
}
template <typename T>
T* hash_db_next_data(hash_db& table) noexcept {
  hash_db_entry* entry = hash_db_next(table);
  return entry == nullptr ? nullptr : static_cast<T*>(hash_db_data(table, *entry));
}

}  // namespace ot
