// Things that wait, first in, first out: configuration for a service that is away, events for the
// main thread. Over the platform's linked queue, so nothing is allocated.
#pragma once

#include <cstdint>
#include <memory>

#include "platform/linked_queue.h"

namespace ot {

// Owns its elements, which derive from lq_link. It does not lock. A queue that lives as long as the
// program is emptied by `clear`, not by a destructor.
template <typename T>
class waiting_queue {
 public:
  void push(std::unique_ptr<T> item) noexcept {
    lq_link& link = *item.release();
    lq_append(queue_, link);
  }
  // The oldest, or null.
  std::unique_ptr<T> pop() noexcept { return std::unique_ptr<T>{static_cast<T*>(lq_pop(queue_))}; }
  void clear() noexcept {
    while (pop() != nullptr) {
    }
  }
  [[nodiscard]] std::uint32_t count() const noexcept { return queue_.count; }

 private:
  lq_queue queue_;
};

}  // namespace ot
