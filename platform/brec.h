// brec_: typed records. A descriptor's field string says how a record lies in memory; any record
// can be encoded and decoded from it, without code of its own.
//
// Field strings: "$N=" opens nested type N and ';' ends it; the first type is the record itself.
// "{name}" names the next field; "L{next}p($N)" is the link that makes records of type N a
// sequence; "p(X)" an optional pointer; "33x%S" a fixed text; D a u32, H a u64, b a boolean (one
// byte), "[name]e" an enumeration (u32); "$N" another type in place;
// "?(<discriminant,E>,1:{name}$N,...,?:v)" a union chosen by its discriminant (u32, first). The
// brief form leaves out the names and ends a type in place with a dot.
// Fields lie at their natural alignment, in order, as in the matching C++ struct.
//
// The way of the data (platform/records/): at registration parse.cpp turns both strings into
// programs, layout.cpp gives every field its offset, and registry.cpp keeps the result if both
// agree, the size is the struct's and nested types are written as they were registered. encode.cpp
// and decode.cpp run that program (program.h) over a record, with the values and the heading of
// wire.h: type, version and a fingerprint of the fields come first, so bytes of another type are
// recognised.
//
// The caller owns records and encoded bytes; the registry keeps addresses of descriptors only,
// which live as long as the process. Registrations happen at start-up on the main thread;
// everything else may run on any thread after that, and takes no lock.
//
// Refused are: a record that cannot be right (a text without an end, a ring, a discriminant without
// an arm) and bytes that are not exactly one record. Nothing of theirs is believed before it is
// checked, so a hostile buffer costs a fixed multiple of its own length at most.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "platform/status.h"

namespace ot {

inline constexpr int record_bad_descriptor = status_code(0x40830200);
inline constexpr int record_malformed = status_code(0x40830400);
inline constexpr int record_unknown_type = status_code(0x40830600);

// A registered type that a record contains, by its number in the field strings.
struct brec_nested {
  std::uint32_t number;
  const char* type_name;
};

// Lives as long as the process: the engine keeps its address.
struct brec_descriptor {
  std::uint32_t version;
  const char* type_name;  // ends in two underscores
  const char* library;    // the descriptor library
  std::span<const brec_nested> nested;
  std::size_t size;   // sizeof the C++ struct
  const char* full;   // field names and types
  const char* brief;  // types only
};

// Bracket the registrations of start-up. Start: 22 while a bracket is open; end: 22 while none is.
int brec_register_start() noexcept;
// Parses and checks the descriptor: both strings agree, the computed size is `size`, nested types
// are registered already and written here as they are there. 0, 12, 22 outside the bracket, 76 for
// a name registered before, record_bad_descriptor.
int brec_register(const brec_descriptor& descriptor) noexcept;
int brec_register_end() noexcept;
// Forgets everything registered since the start, and closes the bracket.
void brec_register_abort() noexcept;
// Forgets every registration, for a process that sets its service up anew.
void brec_forget_all() noexcept;

// Encodes `record` with everything it links to; equal contents give equal bytes. `ret` comes from
// new[] and is the caller's. 0, 12, record_unknown_type (not registered), record_malformed (a
// boolean or a union's discriminant out of range, an unterminated text, nesting or size without
// bounds). Outputs are written on success only.
int brec_encode(const brec_descriptor& descriptor, const void* record, std::byte** ret,
                std::size_t* ret_length) noexcept;

// Decodes into `record`, `descriptor.size` zeroed bytes of the caller; linked records are
// allocated. On any error the record is left zeroed and nothing is kept. 12, record_unknown_type
// (not registered, or bytes of another type or version), record_malformed. Checks everything: a
// hostile buffer never gets more memory than a fixed multiple of its own length.
int brec_decode(const brec_descriptor& descriptor, std::span<const std::byte> bytes,
                void* record) noexcept;

// `size` zeroed bytes for a record or for what a record points to; null when there is no memory.
void* brec_alloc(std::size_t size) noexcept;
template <typename Record>
Record* brec_alloc() noexcept {
  return static_cast<Record*>(brec_alloc(sizeof(Record)));
}

// Frees what `record` links to (allocated by brec_decode or brec_alloc) and zeroes it; the record's
// own bytes stay the caller's. The type must be registered.
void brec_release(const brec_descriptor& descriptor, void* record) noexcept;
// The same for a record that came from brec_alloc itself: frees it too. Null is fine.
void brec_free(const brec_descriptor& descriptor, void* record) noexcept;

}  // namespace ot
