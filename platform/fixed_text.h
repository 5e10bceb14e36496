// A text field of fixed width: always terminated, cut to fit, trivially copyable. Every name that
// lives in a record is one of these.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>

namespace ot {

template <std::size_t N>
class fixed_text {
  static_assert(N > 1);

 public:
  static constexpr std::size_t capacity = N;  // bytes, the terminator included

  constexpr fixed_text() noexcept = default;
  constexpr explicit fixed_text(std::string_view text) noexcept { assign(text); }

  // Copies at most N - 1 characters of `text` and clears the rest of the field.
  constexpr void assign(std::string_view text) noexcept {
    const std::size_t length = std::min(text.size(), N - 1);
    std::fill(std::copy_n(text.begin(), length, bytes_), bytes_ + N, '\0');
  }

  constexpr void clear() noexcept { std::fill_n(bytes_, N, '\0'); }

  [[nodiscard]] constexpr const char* c_str() const noexcept { return bytes_; }
  [[nodiscard]] constexpr std::string_view view() const noexcept {
    return std::string_view{bytes_};
  }
  [[nodiscard]] constexpr bool empty() const noexcept { return bytes_[0] == '\0'; }

  friend constexpr bool operator==(const fixed_text& a, const fixed_text& b) noexcept {
    return a.view() == b.view();
  }
  friend constexpr bool operator==(const fixed_text& a, std::string_view b) noexcept {
    return a.view() == b;
  }

 private:
  char bytes_[N] = {};
};

}  // namespace ot
