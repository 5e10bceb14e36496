// lq_: the platform's linked queue. Intrusive and singly linked; it keeps head, tail and count and
// never allocates. The queue does not own its elements.
#pragma once

#include <cstdint>

namespace ot {

struct lq_link {
  lq_link* next = nullptr;
};

struct lq_queue {
  lq_link* head = nullptr;
  lq_link* tail = nullptr;
  std::uint32_t count = 0;
};

// Puts `element`, which must be in no queue, behind the last one.
void lq_append(lq_queue& queue, lq_link& element) noexcept;

// Takes `element` out. Returns false, and changes nothing, when it is not in the queue.
bool lq_remove(lq_queue& queue, lq_link& element) noexcept;

// Takes the first element out; null when the queue is empty.
lq_link* lq_pop(lq_queue& queue) noexcept;

}  // namespace ot
