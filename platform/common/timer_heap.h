// The order of the started timers: a heap by the instant they are due and, for equal
// instants, by the order of the starts. Nodes are the caller's; the heap keeps pointers to them,
// each beside what it is ordered by, so that finding a place touches no other timer's memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace ot {

struct timer_node {
  static constexpr std::size_t not_in_heap = ~std::size_t{0};

  std::uint64_t due_ns = 0;
  std::size_t place = not_in_heap;  // the heap's own
};

class timer_heap {
 public:
  // Makes room for `count` nodes in all, so that inserts up to there cannot fail. False without
  // memory.
  [[nodiscard]] bool reserve(std::size_t count) noexcept;

  // Puts in a node that is not in the heap.
  void insert(timer_node& node, std::uint64_t due_ns) noexcept;
  // Takes out a node that is in the heap.
  void remove(timer_node& node) noexcept;

  // The earliest node, null when the heap is empty.
  [[nodiscard]] timer_node* first() const noexcept {
    return size_ == 0 ? nullptr : entries_[0].node;
  }

 private:
  // Half as many moves as with two, and the children stand side by side in memory.
  static constexpr std::size_t arity = 4;

  struct entry {
    std::uint64_t due_ns;
    std::uint64_t sequence;
    timer_node* node;
  };
  static bool earlier(const entry& a, const entry& b) noexcept {
    return a.due_ns != b.due_ns ? a.due_ns < b.due_ns : a.sequence < b.sequence;
  }

  void put(std::size_t place, const entry& one) noexcept;
  void rise(std::size_t place) noexcept;
  void sink(std::size_t place) noexcept;

  std::unique_ptr<entry[]> entries_;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
  std::uint64_t next_sequence_ = 0;
};

}  // namespace ot
