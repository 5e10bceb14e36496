// Packed path tuples: several numbers in one ledger value. In a format "%N" stands for a u32 that
// is kept as its four bytes in memory order, so a network-order address stays one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace ot {

// Packs the u32 arguments of a format made of "%N" only into `buffer`; `ret_length` gets the bytes
// used. 0, or 22 for a bad format or a short buffer.
int path_tuple_pack(std::span<std::byte> buffer, std::size_t* ret_length, const char* format,
                    ...) noexcept;
// Unpacks into the u32* arguments. 22, and nothing written, when format and bytes do not fit.
int path_tuple_unpack(std::span<const std::byte> bytes, const char* format, ...) noexcept;

}  // namespace ot
