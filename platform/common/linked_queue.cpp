// The linked queue under the hash table's buckets and the pending-configuration queues. Pure
// pointer work: the elements carry the link, so queueing cannot fail.
#include "platform/linked_queue.h"

namespace ot {

void lq_append(lq_queue& queue, lq_link& element) noexcept {
  element.next = nullptr;
  if (queue.tail == nullptr) {
    queue.head = &element;
  } else {
    queue.tail->next = &element;
  }
  queue.tail = &element;
  ++queue.count;
}

bool lq_remove(lq_queue& queue, lq_link& element) noexcept {
  lq_link* before = nullptr;
  lq_link* at = queue.head;
  while (at != nullptr && at != &element) {
    before = at;
    at = at->next;
  }
  if (at == nullptr) {
    return false;
  }
  (before == nullptr ? queue.head : before->next) = at->next;
  if (queue.tail == at) {
    queue.tail = before;
  }
  at->next = nullptr;
  --queue.count;
  return true;
}

lq_link* lq_pop(lq_queue& queue) noexcept {
  lq_link* first = queue.head;
  if (first != nullptr) {
    lq_remove(queue, *first);
  }
  return first;
}

}  // namespace ot
