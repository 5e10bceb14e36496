// Short ways to write down a commit's changes and a value's bytes.
#pragma once

#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/ledger_commit.h"

namespace ot::test {

inline std::vector<std::byte> bytes_of(std::string_view text) {
  const auto* first = reinterpret_cast<const std::byte*>(text.data());
  return {first, first + text.size()};
}

inline std::vector<std::byte> bytes_of_numbers(std::initializer_list<std::uint32_t> numbers) {
  const auto bytes = std::as_bytes(std::span{numbers.begin(), numbers.size()});
  return {bytes.begin(), bytes.end()};
}

inline ledger_proposal set_number(std::string path, std::uint32_t number) {
  return {.path = std::move(path), .kind = ledger_kind::u32, .value = bytes_of_numbers({number})};
}

inline ledger_proposal set_text(std::string path, std::string_view text) {
  return {.path = std::move(path), .kind = ledger_kind::text, .value = bytes_of(text)};
}

inline ledger_proposal set_tuple(std::string path, std::initializer_list<std::uint32_t> numbers) {
  return {.path = std::move(path), .kind = ledger_kind::tuple, .value = bytes_of_numbers(numbers)};
}

inline ledger_proposal remove_item(std::string path) {
  return {.path = std::move(path), .remove = true, .value = {}};
}

}  // namespace ot::test
