// The cell of the probe statistics table: a few words that one process publishes as a whole and any
// number of others read without asking, locking or waiting.
//
// The cell holds its words twice. Publication n fills the copy that publication n-1 did not use and
// then counts `sequence` up to n: the low bit names the copy in force. A writer that dies half-way
// therefore leaves the words of its last whole publication in force, and no reader ever waits for
// it.
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

  // One writer at a time.
  void publish(const words& value) noexcept {
    const std::uint32_t next = sequence_.load(std::memory_order_relaxed) + 1;
    copy& target = copies_[next & 1];
    for (std::size_t i = 0; i < word_count; ++i) {
      // Release: whoever reads this word also sees that the publication before is in force.
      target[i].store(value[i], std::memory_order_release);
    }
    sequence_.store(next, std::memory_order_release);
  }

  // Any number of readers, also of a mapping that cannot be written. False when the cell was
  // published anew in each of very many tries, which no working writer does; `ret` is then left.
  [[nodiscard]] bool read(words* ret) const noexcept {
    words value;
    for (int tries = 0; tries < tries_max; ++tries) {
      const std::uint32_t before = sequence_.load(std::memory_order_acquire);
      const copy& source = copies_[before & 1];
      for (std::size_t i = 0; i < word_count; ++i) {
        value[i] = source[i].load(std::memory_order_acquire);
      }
      // A word of a later publication can only have been seen together with a later sequence.
      if (sequence_.load(std::memory_order_relaxed) == before) {
        *ret = value;
        return true;
      }
    }
    return false;
  }

 private:
  using copy = std::array<std::atomic<std::uint32_t>, word_count>;
  static constexpr int tries_max = 100000;

  std::atomic<std::uint32_t> sequence_;
  std::array<copy, 2> copies_;
};

static_assert(std::atomic<std::uint32_t>::is_always_lock_free);

}  // namespace ot
