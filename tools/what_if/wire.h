// Questions and answers as bytes (CBOR), as trackctl and the program that answers exchange them.
// The reading functions throw std::exception for what is none.
#pragma once

#include <string_view>
#include <vector>

#include "tools/what_if/question.h"

namespace ot::what_if {

std::vector<std::uint8_t> encode(const question& from);
std::vector<std::uint8_t> encode(const answer& from);
question decode_question(std::string_view bytes);
answer decode_answer(std::string_view bytes);

}  // namespace ot::what_if
