// Reads all of a store's file, as LMDB would and with what LMDB leaves unchecked. The file may be
// anything: only a process that may be lost reads it (store_check.h).
#pragma once

#include <cstddef>
#include <string>

namespace ot {

// What is wrong, in words; they live for ever.
struct store_damage {
  const char* text;
};

// `ordered`: the store keeps the order of its items. Throws store_damage. What it opens stays open.
void read_whole_store(const std::string& path, std::size_t map_bytes, bool ordered);

}  // namespace ot
