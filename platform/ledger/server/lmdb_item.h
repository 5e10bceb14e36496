// How an item lies in a store's file.
#pragma once

#include <lmdb.h>

#include <cstdint>
#include <cstring>
#include <new>
#include <string_view>

#include "platform/ledger/calls/backend.h"

namespace ot {

// Before the value's bytes.
struct lmdb_item_head {
  std::uint64_t sequence;
  ledger_kind kind;
  std::uint32_t reserved;
};
static_assert(sizeof(lmdb_item_head) == 16);

inline MDB_val lmdb_key(std::string_view path) noexcept {
  return {path.size(), const_cast<char*>(path.data())};
}

inline std::string_view lmdb_text_of(const MDB_val& value) noexcept {
  return {static_cast<const char*>(value.mv_data), value.mv_size};
}

// False for bytes that no store has written. `ret_value` is a view into the file's map.
inline bool lmdb_split(const MDB_val& stored, lmdb_item_head& ret,
                       std::span<const std::byte>& ret_value) noexcept {
  if (stored.mv_size < sizeof ret) {
    return false;
  }
  const auto* bytes = static_cast<const std::byte*>(stored.mv_data);
  std::memcpy(&ret, bytes, sizeof ret);
  ret_value = {bytes + sizeof ret, stored.mv_size - sizeof ret};
  return true;
}

}  // namespace ot
