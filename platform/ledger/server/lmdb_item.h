// How an item lies in a store's file, and what LMDB's values are to us.
#pragma once

#include <lmdb.h>

#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>

#include "platform/ledger.h"

namespace ot {

// Before the value's bytes. Files of earlier releases end it before `first`: an item was never
// moved in the order, so its sequence number is also that of its creation.
struct lmdb_item_head {
  std::uint64_t sequence;
  ledger_kind kind;
  std::uint32_t has_first;  // 1, or 0 in an old file
  std::uint64_t first;
};
inline constexpr std::size_t lmdb_old_head_bytes = offsetof(lmdb_item_head, first);
static_assert(lmdb_old_head_bytes == 16 && sizeof(lmdb_item_head) == 24);

inline MDB_val lmdb_key(std::string_view path) noexcept {
  return {path.size(), const_cast<char*>(path.data())};
}

inline std::string_view lmdb_text_of(const MDB_val& value) noexcept {
  return {static_cast<const char*>(value.mv_data), value.mv_size};
}

// False for bytes that no store has written. `ret_value` is a view into the file's map.
inline bool lmdb_split(const MDB_val& stored, lmdb_item_head& ret,
                       std::span<const std::byte>& ret_value) noexcept {
  const auto* bytes = static_cast<const std::byte*>(stored.mv_data);
  if (stored.mv_size < lmdb_old_head_bytes) {
    return false;
  }
  lmdb_item_head head{};
  std::memcpy(&head, bytes, lmdb_old_head_bytes);
  const std::size_t length = head.has_first == 0 ? lmdb_old_head_bytes : sizeof head;
  if (head.has_first > 1 || stored.mv_size < length) {
    return false;
  }
  std::memcpy(&head, bytes, length);
  head.first = head.has_first == 0 ? head.sequence : head.first;
  ret = head;
  ret_value = {bytes + length, stored.mv_size - length};
  return true;
}

}  // namespace ot
