// The heap under the timer tree. Each node knows its place, so a timer far down is restarted or
// stopped without a search.
#include "platform/common/timer_heap.h"

#include <algorithm>
#include <new>

namespace ot {
namespace {

bool earlier(const timer_node* a, const timer_node* b) noexcept {
  return a->due_ns != b->due_ns ? a->due_ns < b->due_ns : a->sequence < b->sequence;
}

}  // namespace

bool timer_heap::reserve(std::size_t count) noexcept {
  if (count <= capacity_) {
    return true;
  }
  const std::size_t capacity = std::max<std::size_t>({16, count, capacity_ * 2});
  std::unique_ptr<timer_node*[]> larger(new (std::nothrow) timer_node*[capacity]);
  if (larger == nullptr) {
    return false;
  }
  std::copy_n(nodes_.get(), size_, larger.get());
  nodes_ = std::move(larger);
  capacity_ = capacity;
  return true;
}

void timer_heap::insert(timer_node& node, std::uint64_t due_ns) noexcept {
  node.due_ns = due_ns;
  node.sequence = next_sequence_++;
  put(size_++, &node);
  rise(node.place);
}

void timer_heap::remove(timer_node& node) noexcept {
  const std::size_t place = node.place;
  timer_node* last = nodes_[--size_];
  if (last != &node) {
    put(place, last);
    rise(place);
    sink(last->place);
  }
  node.place = timer_node::not_in_heap;
}

void timer_heap::put(std::size_t place, timer_node* node) noexcept {
  nodes_[place] = node;
  node->place = place;
}

void timer_heap::rise(std::size_t place) noexcept {
  timer_node* node = nodes_[place];
  while (place > 0 && earlier(node, nodes_[(place - 1) / 2])) {
    put(place, nodes_[(place - 1) / 2]);
    place = (place - 1) / 2;
  }
  put(place, node);
}

void timer_heap::sink(std::size_t place) noexcept {
  timer_node* node = nodes_[place];
  for (std::size_t child = 2 * place + 1; child < size_; child = 2 * place + 1) {
    if (child + 1 < size_ && earlier(nodes_[child + 1], nodes_[child])) {
      ++child;
    }
    if (!earlier(nodes_[child], node)) {
      break;
    }
    put(place, nodes_[child]);
    place = child;
  }
  put(place, node);
}

}  // namespace ot
