// A set of places in the order of the table of tracks, out of which the first is taken again and
// again.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace ot {

class place_set {
 public:
  // May throw bad_alloc.
  void make(std::size_t places) { words_.assign(places / word_bits + 1, 0); }

  void add(std::uint32_t place) noexcept { words_[place / word_bits] |= bit(place); }

  // False when none is left; then the next one taken is the first again.
  bool take(std::uint32_t* ret) noexcept {
    for (; word_ < words_.size(); ++word_) {
      if (words_[word_] != 0) {
        *ret = static_cast<std::uint32_t>(word_) * word_bits +
               static_cast<std::uint32_t>(std::countr_zero(words_[word_]));
        words_[word_] &= ~bit(*ret);
        return true;
      }
    }
    word_ = 0;
    return false;
  }

 private:
  static constexpr std::uint32_t word_bits = 64;
  static std::uint64_t bit(std::uint32_t place) noexcept {
    return std::uint64_t{1} << place % word_bits;
  }

  std::vector<std::uint64_t> words_;
  std::size_t word_ = 0;
};

}  // namespace ot
