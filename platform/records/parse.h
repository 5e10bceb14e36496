// Turns a descriptor's field string into a program with its layout.
#pragma once

#include <string_view>

#include "platform/records/program.h"

namespace ot {

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
