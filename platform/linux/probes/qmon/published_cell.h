// The cell of the probe statistics table: a few words that one process publishes as a whole and any
// number of others copy without asking, locking or waiting.
//
// The cell holds its words twice, each copy with a check value over the words and the number of
// their publication. Publication n fills the copy that publication n-1 did not use and then counts
// `sequence` up to n: the low bit names the copy in force. A writer that dies half-way therefore
// leaves the words of its last whole publication in force, and no reader ever waits for it.
//
// A reader takes the cell's bytes in one go, in whatever order the kernel copies them, and believes
// a copy only when its check value agrees with its words and with the sequence: words of two
// publications, of an older one, or of nobody who fills the table never do.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace ot {

template <std::size_t word_count>
class published_cell {
 public:
  using words = std::array<std::uint32_t, word_count>;

  // For the cell in shared memory. One writer at a time.
  void publish(const words& value) noexcept {
    const std::uint32_t next = std::atomic_ref(sequence_).load(std::memory_order_relaxed) + 1;
    const std::uint64_t check = check_of(value, next);
    copy& target = copies_[next & 1];
    for (std::size_t i = 0; i < word_count; ++i) {
      // Release: whoever reads this word also sees that the publication before is in force.
      store(target[i], value[i]);
    }
    store(target[word_count], static_cast<std::uint32_t>(check));
    store(target[word_count + 1], static_cast<std::uint32_t>(check >> 32));
    store(sequence_, next);
  }

  // For a reader's own copy of the bytes. False when there is no whole publication in them; `ret`
  // is then left. A cell in which nothing was published yet has words of 0.
  [[nodiscard]] bool read(words* ret) const noexcept {
    const copy& source = copies_[sequence_ & 1];
    words value;
    for (std::size_t i = 0; i < word_count; ++i) {
      value[i] = source[i];
    }
    const std::uint64_t check =
        source[word_count] | static_cast<std::uint64_t>(source[word_count + 1]) << 32;
    if (check != check_of(value, sequence_)) {
      return false;
    }
    *ret = value;
    return true;
  }

 private:
  using copy = std::array<std::uint32_t, word_count + 2>;

  static void store(std::uint32_t& word, std::uint32_t value) noexcept {
    std::atomic_ref(word).store(value, std::memory_order_release);
  }

  // One word that differs always makes another value. Zeros make 0: a cell that was never used.
  static constexpr std::uint64_t check_of(const words& value, std::uint32_t sequence) noexcept {
    constexpr std::uint64_t odd = 0x9e3779b97f4a7c15;
    std::uint64_t check = sequence * odd;
    for (const std::uint32_t word : value) {
      check = ((check ^ check >> 32) + word) * odd;
    }
    return check ^ check >> 32;
  }

  std::uint32_t sequence_ = 0;
  std::array<copy, 2> copies_{};
};

static_assert(std::atomic_ref<std::uint32_t>::is_always_lock_free);

}  // namespace ot
