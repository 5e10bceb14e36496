// The heap under the timer tree. Each node knows its place, so a timer far down is restarted or
// stopped without a search.
#include "platform/common/timer_heap.h"

#include <algorithm>
#include <new>

namespace ot {

bool timer_heap::reserve(std::size_t count) noexcept {
  if (count <= capacity_) {
    return true;
  }
  const std::size_t capacity = std::max<std::size_t>({16, count, capacity_ * 2});
  std::unique_ptr<entry[]> larger(new (std::nothrow) entry[capacity]);
  if (larger == nullptr) {
    return false;
  }
  std::copy_n(entries_.get(), size_, larger.get());
  entries_ = std::move(larger);
  capacity_ = capacity;
  return true;
}

void timer_heap::insert(timer_node& node, std::uint64_t due_ns) noexcept {
  node.due_ns = due_ns;
  put(size_++, {due_ns, next_sequence_++, &node});
  rise(node.place);
}

void timer_heap::remove(timer_node& node) noexcept {
  const std::size_t place = node.place;
  const entry last = entries_[--size_];
  if (last.node != &node) {
    put(place, last);
    rise(place);
    sink(last.node->place);
  }
  node.place = timer_node::not_in_heap;
}

void timer_heap::put(std::size_t place, const entry& one) noexcept {
  entries_[place] = one;
  one.node->place = place;
}

void timer_heap::rise(std::size_t place) noexcept {
  const entry risen = entries_[place];
  while (place > 0 && earlier(risen, entries_[(place - 1) / arity])) {
    put(place, entries_[(place - 1) / arity]);
    place = (place - 1) / arity;
  }
  put(place, risen);
}

void timer_heap::sink(std::size_t place) noexcept {
  const entry sunk = entries_[place];
  for (std::size_t child = arity * place + 1; child < size_; child = arity * place + 1) {
    const std::size_t end = std::min(child + arity, size_);
    for (std::size_t other = child + 1; other < end; ++other) {
      child = earlier(entries_[other], entries_[child]) ? other : child;
    }
    if (!earlier(entries_[child], sunk)) {
      break;
    }
    put(place, entries_[child]);
    place = child;
  }
  put(place, sunk);
}

}  // namespace ot
