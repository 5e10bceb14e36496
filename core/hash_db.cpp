// The chained hash table. An entry is one heap block: the link word, the key, the data record. What
// differs between number and text keys is three small functions chosen at creation.

#include "core/hash_db.h"

#include <strings.h>

#include <cstring>
#include <new>

#include "platform/status.h"

namespace ot {
namespace {

constexpr std::size_t link_size = sizeof(lq_link);
static_assert(link_size == 8, "the link word is part of the entry's fixed layout");

void* entry_key(hash_db_entry& entry) noexcept {
  return reinterpret_cast<std::byte*>(&entry) + link_size;
}

std::uint32_t int_key(const void* key) noexcept {
  std::uint32_t number;
  std::memcpy(&number, key, sizeof number);
  return number;
}

std::uint32_t int_hash(const hash_db& table, const void* key) noexcept {
  return int_key(key) % table.bucket_count;
}

bool int_compare(const hash_db&, const void* a, const void* b) noexcept {
  return int_key(a) == int_key(b);
}

void int_copy(const hash_db& table, void* to, const void* from) noexcept {
  std::memcpy(to, from, table.key_size);
}

// Reducing in every round keeps the sum within 32 bits of meaning for any bucket count. Characters
// count as signed, so bytes from 0x80 take away.
std::uint32_t str_hash(const hash_db& table, const void* key) noexcept {
  const auto* text = static_cast<const char*>(key);
  std::uint32_t h = 0;
  for (std::uint32_t i = 0; i < table.key_size && text[i] != '\0'; ++i) {
    const std::uint32_t byte = static_cast<unsigned char>(text[i]);
    const std::uint32_t c = byte < 0x80 ? byte : byte - 0x100;
    h = (((h << 7) + c) % table.bucket_count) * 65599U + c;
  }
  return h % table.bucket_count;
}

// Characters a text key has room for beside its terminator.
std::size_t str_room(const hash_db& table) noexcept {
  return table.key_size == 0 ? 0 : table.key_size - 1U;
}

bool str_compare(const hash_db& table, const void* a, const void* b) noexcept {
  return strncasecmp(static_cast<const char*>(a), static_cast<const char*>(b), str_room(table)) ==
         0;
}

void str_copy(const hash_db& table, void* to, const void* from) noexcept {
  auto* field = static_cast<char*>(to);
  const std::size_t length = strnlen(static_cast<const char*>(from), str_room(table));
  std::memcpy(field, from, length);
  std::memset(field + length, 0, table.key_size - length);
}

int create(hash_db& table, std::uint32_t bucket_count, std::uint16_t key_size,
           std::uint16_t data_size) noexcept {
  auto* buckets = new (std::nothrow) lq_queue[bucket_count];
  if (buckets == nullptr) {
    return no_memory;
  }
  table = hash_db{};
  table.bucket_count = bucket_count;
  table.key_size = key_size;
  table.data_size = data_size;
  table.entry_size = key_size + data_size + static_cast<std::uint32_t>(link_size);
  table.buckets = buckets;
  return status_ok;
}

bool usable(const hash_db& table) noexcept {
  return table.buckets != nullptr && table.bucket_count != 0;
}

hash_db_entry* as_entry(lq_link* link) noexcept {
  return reinterpret_cast<hash_db_entry*>(link);
}

hash_db_entry* find_in_bucket(const hash_db& table, std::uint32_t bucket,
                              const void* key) noexcept {
  for (lq_link* link = table.buckets[bucket].head; link != nullptr; link = link->next) {
    hash_db_entry* entry = as_entry(link);
    if (table.compare(table, entry_key(*entry), key)) {
      return entry;
    }
  }
  return nullptr;
}

void free_entry(hash_db_entry* entry) noexcept {
  ::operator delete(entry);
}

}  // namespace

int hash_db_create_int(hash_db& table, std::uint32_t bucket_count,
                       std::uint16_t data_size) noexcept {
  const int status = create(table, bucket_count, sizeof(std::uint32_t), data_size);
  if (status == status_ok) {
    table.hash = int_hash;
    table.compare = int_compare;
    table.copy_key = int_copy;
  }
  return status;
}

int hash_db_create_str(hash_db& table, std::uint32_t bucket_count, std::uint16_t key_size,
                       std::uint16_t data_size) noexcept {
  const int status = create(table, bucket_count, key_size, data_size);
  if (status == status_ok) {
    table.hash = str_hash;
    table.compare = str_compare;
    table.copy_key = str_copy;
  }
  return status;
}

int hash_db_add_new_item(hash_db& table, const void* key, const void* data) noexcept {
  if (!usable(table)) {
    return no_memory;
  }
  const std::uint32_t bucket = table.hash(table, key);
  if (find_in_bucket(table, bucket, key) != nullptr) {
    return duplicate_key;
  }
  void* block = ::operator new(table.entry_size, std::nothrow);
  if (block == nullptr) {
    return no_memory;
  }
  auto* entry = new (block) hash_db_entry{};
  table.copy_key(table, entry_key(*entry), key);
  if (table.data_size != 0) {
    std::memcpy(hash_db_data(table, *entry), data, table.data_size);
  }
  lq_append(table.buckets[bucket], entry->link);
  ++table.entries;
  return status_ok;
}

hash_db_entry* hash_db_find(const hash_db& table, const void* key) noexcept {
  return usable(table) ? find_in_bucket(table, table.hash(table, key), key) : nullptr;
}

hash_db_entry* hash_db_find_set_cursor(hash_db& table, const void* key) noexcept {
  if (!usable(table)) {
    return nullptr;
  }
  table.cursor_bucket = table.hash(table, key);
  table.cursor_entry = find_in_bucket(table, table.cursor_bucket, key);
  return table.cursor_entry;
}

hash_db_entry* hash_db_first(hash_db& table) noexcept {
  table.cursor_entry = nullptr;
  return hash_db_next(table);
}

hash_db_entry* hash_db_next(hash_db& table) noexcept {
  if (!usable(table)) {
    return nullptr;
  }
  lq_link* link = nullptr;
  if (table.cursor_entry == nullptr) {
    table.cursor_bucket = 0;
    link = table.buckets[0].head;
  } else {
    link = table.cursor_entry->link.next;
  }
  while (link == nullptr && table.cursor_bucket + 1 < table.bucket_count) {
    ++table.cursor_bucket;
    link = table.buckets[table.cursor_bucket].head;
  }
  table.cursor_entry = as_entry(link);
  return table.cursor_entry;
}

void hash_db_delete_current(hash_db& table) noexcept {
  hash_db_entry* entry = table.cursor_entry;
  if (entry == nullptr) {
    return;
  }
  lq_remove(table.buckets[table.cursor_bucket], entry->link);
  free_entry(entry);
  --table.entries;
  table.cursor_entry = nullptr;
}

int hash_db_delete(hash_db& table, const void* key) noexcept {
  if (hash_db_find_set_cursor(table, key) == nullptr) {
    return invalid_argument;
  }
  hash_db_delete_current(table);
  return status_ok;
}

std::uint32_t hash_db_count(const hash_db& table) noexcept {
  return table.entries;
}

void hash_db_destroy(hash_db& table) noexcept {
  for (std::uint32_t i = 0; table.buckets != nullptr && i < table.bucket_count; ++i) {
    while (lq_link* link = lq_pop(table.buckets[i])) {
      free_entry(as_entry(link));
    }
  }
  delete[] table.buckets;
  table.buckets = nullptr;
  table.entries = 0;
  table.cursor_bucket = 0;
  table.cursor_entry = nullptr;
}

const void* hash_db_key(const hash_db_entry& entry) noexcept {
  return reinterpret_cast<const std::byte*>(&entry) + link_size;
}

void* hash_db_data(const hash_db& table, hash_db_entry& entry) noexcept {
  return reinterpret_cast<std::byte*>(&entry) + link_size + table.key_size;
}

}  // namespace ot
