// The compiled form of a field string: what the encoder, the decoder and the release walk interpret
// in place of the text. Built once at registration and never changed after that.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "platform/brec.h"

namespace ot {

enum class brec_kind : std::uint8_t {
  u32,
  enumeration,  // a u32 as well
  u64,
  boolean,
  text,
  nested,   // another type in place
  pointer,  // optional, to a type; to a sequence when that type is linked
  link,     // the next element of the sequence this record is in
};

struct brec_op {
  brec_kind kind = brec_kind::u32;
  std::uint32_t offset = 0;  // in the record
  std::uint32_t width = 0;   // bytes of a text field, the terminator included
  std::uint32_t target = 0;  // the type's index; while parsing, its number
  std::uint32_t code = 0;    // the discriminant that selects this arm of a union

  friend bool operator==(const brec_op&, const brec_op&) = default;
};

// One struct or union. A union's operations are its arms, all at the same offset, behind the u32
// discriminant at offset 0.
struct brec_type {
  std::uint32_t number = 0;  // 0: the unnamed target of a pointer to a plain field
  bool is_union = false;
  bool has_default = false;  // a union: codes without an arm select nothing
  bool is_linked = false;
  std::uint32_t link_offset = 0;
  std::uint32_t size = 0;
  std::uint32_t alignment = 1;
  std::uint32_t least_encoded = 0;  // no encoding is shorter, in bytes
  std::vector<brec_op> ops;

  friend bool operator==(const brec_type&, const brec_type&) = default;
};

// The record's own type comes first.
struct brec_program {
  std::vector<brec_type> types;
};

// A registered descriptor.
struct brec_compiled {
  const brec_descriptor* descriptor = nullptr;
  brec_program program;
  std::vector<std::byte> heading;  // what every encoding of this type begins with
};

// Null when the descriptor is not registered.
const brec_compiled* brec_find(const brec_descriptor& descriptor) noexcept;

// Records point to records at most this deep. Sequences do not count.
inline constexpr unsigned brec_most_depth = 16;
// No record is longer when encoded, in bytes.
inline constexpr std::size_t brec_most_encoded = std::size_t{1} << 24;

// --- From the text to the program --------------------------------------------------------------

enum class brec_form : std::uint8_t { full, brief };

// Reads `fields` and lays the types out. False when the string is not a proper field string.
// Throws std::bad_alloc.
bool brec_parse(std::string_view fields, brec_form form, brec_program* ret);

// Computes offsets, sizes and shortest encodings of the parsed types. False when a type contains
// itself in place, is empty, or is too large. Called by brec_parse.
bool brec_lay_out(std::vector<brec_type>& types);

// The text of type `number` in the string, from '$' up to the ';'; empty when it is not there.
std::string_view brec_definition(std::string_view fields, std::uint32_t number) noexcept;

}  // namespace ot
