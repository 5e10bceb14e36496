// The event manager's way in from outside its loop: a locked queue of tasks and an eventfd that
// counts them. Asynchronous events ride in the same queue with a node of their own, so raising one
// cannot fail.
#pragma once

#include <systemd/sd-event.h>

#include <mutex>

#include "platform/event_manager.h"
#include "platform/linux/unique_fd.h"

namespace ot {

class evm_queue {
 public:
  evm_queue() = default;
  ~evm_queue();
  evm_queue(const evm_queue&) = delete;
  evm_queue& operator=(const evm_queue&) = delete;

  // Attaches the queue to the loop. 0 or a status code.
  int open(sd_event* loop) noexcept;

  // Any thread. 0 or 12.
  int post(evm_task task, void* argument) noexcept;
  // Any thread. An unknown code is ignored; a pending one stays pending once.
  void raise(int code) noexcept;

  // Loop's thread, from within a handler of it: runs the code's handler now, when nothing waits in
  // the queue before it; else raises it.
  void run_or_raise(int code);

  // Loop's thread. A second attach of a code replaces its handler. False without memory.
  [[nodiscard]] bool attach(int code, evm_async_handler handler, void* argument) noexcept;
  [[nodiscard]] bool attached(int code) noexcept;

 private:
  struct node {
    node* next = nullptr;
    evm_task task = nullptr;
    void* argument = nullptr;
    bool owned = false;  // a posted task: freed when it has been taken out
  };
  struct async_event {
    async_event* next = nullptr;
    int code = 0;
    bool pending = false;
    node entry;
    evm_queue* queue = nullptr;
    evm_async_handler handler = nullptr;
    void* argument = nullptr;
  };

  static int on_readable(sd_event_source* source, int fd, std::uint32_t events, void* queue);
  static void run_async(void* event);
  void append(node& added) noexcept;  // with the lock held
  async_event* find(int code) noexcept;
  void run_one();

  std::mutex lock_;
  node* head_ = nullptr;
  node* tail_ = nullptr;
  async_event* events_ = nullptr;
  unique_fd fd_;
  sd_event_source* source_ = nullptr;
};

}  // namespace ot
