// Tasks posted to the loop's thread. The eventfd counts as a semaphore: one task leaves the queue
// for each dispatch of the loop, so a flood of posts never starves the other sources.
#include "platform/linux/loop/queue.h"

#include <sys/eventfd.h>

#include <cerrno>
#include <new>

#include "platform/status.h"

namespace ot {

evm_queue::~evm_queue() {
  sd_event_source_disable_unref(source_);
  while (node* first = head_) {
    head_ = first->next;
    if (first->owned) {
      delete first;
    }
  }
  while (async_event* first = events_) {
    events_ = first->next;
    delete first;
  }
}

int evm_queue::open(sd_event* loop) noexcept {
  fd_ = unique_fd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK | EFD_SEMAPHORE));
  if (!fd_.valid()) {
    return errno;
  }
  return -sd_event_add_io(loop, &source_, fd_.get(), EPOLLIN, on_readable, this);
}

void evm_queue::append(node& added) noexcept {
  added.next = nullptr;
  (tail_ == nullptr ? head_ : tail_->next) = &added;
  tail_ = &added;
  // Fails only at 2^64 - 1 waiting tasks, and then the loop is awake anyway.
  eventfd_write(fd_.get(), 1);
}

int evm_queue::post(evm_task task, void* argument) noexcept {
  node* added = new (std::nothrow) node{nullptr, task, argument, true};
  if (added == nullptr) {
    return no_memory;
  }
  const std::lock_guard guard(lock_);
  append(*added);
  return status_ok;
}

void evm_queue::raise(int code) noexcept {
  const std::lock_guard guard(lock_);
  async_event* event = find(code);
  if (event != nullptr && !event->pending) {
    event->pending = true;
    append(event->entry);
  }
}

void evm_queue::run_or_raise(int code) {
  async_event* event = nullptr;
  {
    const std::lock_guard guard(lock_);
    event = head_ == nullptr ? find(code) : nullptr;
  }
  if (event == nullptr) {
    raise(code);
  } else {
    run_async(event);
  }
}

bool evm_queue::attach(int code, evm_async_handler handler, void* argument) noexcept {
  const std::lock_guard guard(lock_);
  async_event* event = find(code);
  if (event == nullptr) {
    event = new (std::nothrow) async_event;
    if (event == nullptr) {
      return false;
    }
    event->next = events_;
    event->code = code;
    event->entry = {nullptr, run_async, event, false};
    event->queue = this;
    events_ = event;
  }
  event->handler = handler;
  event->argument = argument;
  return true;
}

bool evm_queue::attached(int code) noexcept {
  const std::lock_guard guard(lock_);
  return find(code) != nullptr;
}

evm_queue::async_event* evm_queue::find(int code) noexcept {
  async_event* event = events_;
  while (event != nullptr && event->code != code) {
    event = event->next;
  }
  return event;
}

void evm_queue::run_async(void* event) {
  auto* raised = static_cast<async_event*>(event);
  raised->handler(raised->argument);
}

void evm_queue::run_one() {
  node taken;
  {
    const std::lock_guard guard(lock_);
    node* first = head_;
    if (first == nullptr) {
      return;
    }
    head_ = first->next;
    if (head_ == nullptr) {
      tail_ = nullptr;
    }
    taken = *first;
    if (first->owned) {
      delete first;
    } else {
      static_cast<async_event*>(first->argument)->pending = false;
    }
  }
  taken.task(taken.argument);
}

int evm_queue::on_readable(sd_event_source* /*source*/, int fd, std::uint32_t /*events*/,
                           void* queue) {
  eventfd_t one = 0;
  if (eventfd_read(fd, &one) == 0) {
    static_cast<evm_queue*>(queue)->run_one();
  }
  return 0;
}

}  // namespace ot
