// What bfdd's vty socket answers to a command, out of its stream: a text, which has no NUL in it,
// then three NULs and the command's return code. Pure.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace ot::bfd::vty {

// Longer answers are not of this world: it is the sessions of six thousand neighbors.
inline constexpr std::size_t answer_limit = std::size_t{4} * 1024 * 1024;

inline constexpr std::uint8_t code_ok = 0;

class answer_reader {
 public:
  enum class found { nothing, answer, broken };

  // The bytes that come next. One command is asked at a time, so that whatever follows an answer
  // is nonsense, as an answer is that does not end. Throws bad_alloc.
  found take(std::string_view bytes);

  // Of the answer that was found.
  [[nodiscard]] std::string_view text() const noexcept { return {bytes_.data(), end_}; }
  [[nodiscard]] std::uint8_t code() const noexcept { return code_; }
  // bfdd has done what it was asked. A failure may have the code of success.
  [[nodiscard]] bool succeeded() const noexcept {
    return code_ == code_ok && !text().starts_with("% Failed");
  }

 private:
  std::string bytes_;
  std::size_t end_ = 0;  // of the text; so far, in an answer that is not whole
  std::uint8_t code_ = code_ok;
};

}  // namespace ot::bfd::vty
