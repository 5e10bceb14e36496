// brec_: typed records. A descriptor's field string says how a record lies in memory; the engine
// encodes and decodes any record from it.
//
// Field strings: "$N=" opens nested type N and ';' ends it; "{name}" names the next field;
// "L{next}p($N)" is the link that makes records of type N a sequence; "p(X)" an optional pointer;
// "33x%S" a fixed text; D a u32, H a u64, b a boolean (one byte), "[name]e" an enumeration (u32);
// "?(<discriminant,E>,1:{name}$N,...,?:v)" a union chosen by its discriminant (u32, first).
// Fields lie at their natural alignment, in order, as in the matching C++ struct.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace ot {

struct brec_descriptor;

// A type that a record contains, by its number in the field strings.
struct brec_nested {
  std::uint32_t number;
  const char* type_name;
};

struct brec_descriptor {
  std::uint32_t version;
  const char* type_name;  // ends in two underscores
  const char* library;    // the descriptor library
  std::span<const brec_nested> nested;
  std::size_t size;   // sizeof the C++ struct
  const char* full;   // field names and types
  const char* brief;  // types only
};

// Bracket the registrations of start-up; registering outside is refused (22).
int brec_register_start() noexcept;
// Parses and checks the descriptor: both strings agree, the computed size is `size`, nested types
// are registered already. 0, 12, 76 for a name registered before, record_bad_descriptor.
int brec_register(const brec_descriptor& descriptor) noexcept;
int brec_register_end() noexcept;
// Forgets everything registered since the start.
void brec_register_abort() noexcept;

// Encodes `record` with everything it links to. `ret` comes from new[] and is the caller's. 0, 12,
// record_unknown_type (not registered), record_malformed (a union or boolean out of range).
int brec_encode(const brec_descriptor& descriptor, const void* record, std::byte** ret,
                std::size_t* ret_length) noexcept;

// Decodes into `record`, `descriptor.size` zeroed bytes of the caller; linked records are
// allocated. On any error the record is left zeroed and nothing is kept. Checks everything: a
// hostile buffer gives record_malformed or record_unknown_type, never more than its share of
// memory.
int brec_decode(const brec_descriptor& descriptor, std::span<const std::byte> bytes,
                void* record) noexcept;

// Frees what `record` links to (allocated by brec_decode or brec_alloc) and zeroes it; the record's
// own bytes stay the caller's.
void brec_release(const brec_descriptor& descriptor, void* record) noexcept;

}  // namespace ot
